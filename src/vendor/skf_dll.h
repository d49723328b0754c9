// Vendor SKF modules: one record per loaded vendor library, and the map from device type to it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "skf.h"
#include "vendor/skf_functions.h"
#include "vorel/vorel_util.h"

namespace vorel {

struct SkfDll {
  char name[64];
  int32_t type;
  vorel_dso* module;
  // Standard entry points carry the standard's signatures; null when the vendor lacks one.
#define VOREL_SKF_ENTRY(fn) decltype(&::fn) fn;
  VOREL_SKF_STANDARD_FUNCTIONS(VOREL_SKF_ENTRY)
#undef VOREL_SKF_ENTRY
  // Vendor decryption functions, each with its family's signature.
#define VOREL_SKF_ENTRY(fn, signature) signature fn##_vendor;
  VOREL_SKF_VENDOR_DECRYPT_FUNCTIONS(VOREL_SKF_ENTRY)
#undef VOREL_SKF_ENTRY
};

SkfDll* new_skf_dll(const char* name, int32_t type, const char* dllPath);
void free_skf_dll(SkfDll* dll);

// Device type to vendor module. A module stays loaded while a call holds it, so a reload
// never pulls a library out from under a running call.
class SkfSet {
 public:
  std::shared_ptr<const SkfDll> find(int32_t type) const;
  std::size_t size() const;

 private:
  friend void init_skf_set(SkfSet& set);
  friend void free_skf_set(SkfSet& set);
  mutable std::mutex mutex_;
  std::map<int32_t, std::shared_ptr<const SkfDll>> modules_;
};

// Frees every module, then loads those of the current configuration.
void init_skf_set(SkfSet& set);
void free_skf_set(SkfSet& set);

// The process-wide map.
SkfSet& GetSkfSet();
// The module serving a device type, or null: the route test. Hold it for the whole call.
inline std::shared_ptr<const SkfDll> vendor_module(int32_t type) { return GetSkfSet().find(type); }

}  // namespace vorel
