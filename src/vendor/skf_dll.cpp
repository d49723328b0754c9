#include "vendor/skf_dll.h"

#include <cstring>

#include "core/config.h"
#include "core/log.h"
#include "platform/platform.h"
#include "vorel/vorel_ptr.h"

namespace vorel {

namespace {

// Resolves one entry point; a missing one is logged and left null, loading goes on.
template <class Fn>
void resolve(vorel_dso* module, const char* name, Fn& slot) {
  vorel_fnptr fn = vorel_dso_getfunction(module, name);
  if (!fn) VLOG_WARN("new_skf_dll", "vorel_dso_getfunction %s fail", name);
  slot = reinterpret_cast<Fn>(fn);
}

}  // namespace

SkfDll* new_skf_dll(const char* name, int32_t type, const char* dllPath) {
  VLOG_DEBUG("new_skf_dll", "name : %s", name);
  VLOG_DEBUG("new_skf_dll", "type : %d", type);
  VLOG_DEBUG("new_skf_dll", "dll_path : %s", dllPath);
  auto* dll = static_cast<SkfDll*>(vorel_malloc(sizeof(SkfDll)));
  if (!dll) return nullptr;
  // The configuration is trusted to keep names short; cut rather than overrun.
  std::strncpy(dll->name, name, sizeof dll->name - 1);
  dll->type = type;
  vorel_ustring* path = vorel_ustring_newascii(dllPath, std::strlen(dllPath));
  dll->module = vorel_dso_load(path);
  int error = platform::last_error();
  vorel_ustring_free(path);
  if (!dll->module) {
    VLOG_ERROR("new_skf_dll", "vorel_dso_load fail, error = %d", error);
    VLOG_DEBUG("new_skf_dll", "%s", platform::dso_error_text().c_str());
    free_skf_dll(dll);
    return nullptr;
  }
#define VOREL_SKF_RESOLVE(fn) resolve(dll->module, #fn, dll->fn);
  VOREL_SKF_STANDARD_FUNCTIONS(VOREL_SKF_RESOLVE)
#undef VOREL_SKF_RESOLVE
#define VOREL_SKF_RESOLVE(fn, signature) resolve(dll->module, #fn, dll->fn##_vendor);
  VOREL_SKF_VENDOR_DECRYPT_FUNCTIONS(VOREL_SKF_RESOLVE)
#undef VOREL_SKF_RESOLVE
  return dll;
}

void free_skf_dll(SkfDll* dll) {
  if (!dll) return;
  if (dll->module) {
    vorel_dso_free(dll->module);
    dll->module = nullptr;
  }
  vorel_free(dll);
}

std::shared_ptr<const SkfDll> SkfSet::find(int32_t type) const {
  std::lock_guard<std::mutex> guard(mutex_);
  auto it = modules_.find(type);
  return it == modules_.end() ? nullptr : it->second;
}

std::size_t SkfSet::size() const {
  std::lock_guard<std::mutex> guard(mutex_);
  return modules_.size();
}

void free_skf_set(SkfSet& set) {
  std::map<int32_t, std::shared_ptr<const SkfDll>> old;
  {
    std::lock_guard<std::mutex> guard(set.mutex_);
    old.swap(set.modules_);
  }
  // A module still held by a running call is unloaded when that call returns.
  for (auto& entry : old) VLOG_DEBUG("free_skf_set", "free skf dll, type : %d", entry.first);
}

void init_skf_set(SkfSet& set) {
  // Every module is freed before any is loaded; a reload runs with the call gate closed, so no
  // call looks a type up in between (core/gate.h).
  free_skf_set(set);
  auto devices = GetVorelSKFConfig().devices();
  for (const DeviceConfig& d : *devices) {
    if (!d.isskf) continue;
    SkfDll* dll = new_skf_dll(d.name.c_str(), d.type, d.dllpath.c_str());
    if (!dll) continue;
    std::shared_ptr<const SkfDll> module(dll, [](const SkfDll* p) { free_skf_dll(const_cast<SkfDll*>(p)); });
    // A later entry of the same type replaces the earlier one, which is unloaded.
    std::lock_guard<std::mutex> guard(set.mutex_);
    set.modules_[d.type].swap(module);
  }
}

SkfSet& GetSkfSet() {
  // Never destroyed: the unload path frees it explicitly, whatever the order of static teardown.
  return resident<SkfSet>();
}

}  // namespace vorel
