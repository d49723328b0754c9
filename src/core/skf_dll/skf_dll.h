// Vendor SKF modules: one record per loaded vendor library, and the map from device type to it.
#pragma once

#include <cstdint>
#include <map>

#include "core/skf_dll/skf_functions.h"
#include "skf.h"
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
  // Vendor decryption functions differ per vendor; they are cast where they are called.
#define VOREL_SKF_ENTRY(fn) vorel_fnptr fn##_vendor;
  VOREL_SKF_VENDOR_DECRYPT_FUNCTIONS(VOREL_SKF_ENTRY)
#undef VOREL_SKF_ENTRY
};

using SkfSet = std::map<int32_t, SkfDll*>;

SkfDll* new_skf_dll(const char* name, int32_t type, const char* dllPath);
void free_skf_dll(SkfDll* dll);
void init_skf_set(SkfSet& set);
void free_skf_set(SkfSet& set);

// The process-wide map.
SkfSet& GetSkfSet();
// The module serving a device type, or nullptr: the route test.
SkfDll* find_skf_dll(int32_t type);

}  // namespace vorel
