// The frame every export runs in: call trace, argument checks bound to the export's validation
// line, handle lookup, vendor forwarding and the logging of failures.
#pragma once

#include <utility>

#include "core/log.h"
#include "core/records.h"
#include "core/skf_dll/skf_dll.h"
#include "core/validate.h"
#include "skf.h"

namespace vorel {

// The crypto library's process-wide pseudo device, held from load to unload.
VOREL_DEVICE* pseudo_device();

class ExportCall {
 public:
  // invalidCode is what a failed argument check answers (the block-cipher exports differ).
  explicit ExportCall(const char* name, ULONG invalidCode = SAR_INVALIDPARAMERR)
      : tracer_(name), name_(name), invalidCode_(invalidCode) {}

  const char* name() const { return name_; }

  // Binds the following checks to the place of the export's validation block.
  ExportCall& at(const char* file, int line) {
    file_ = file;
    line_ = line;
    return *this;
  }

  bool pointer(const char* name, const void* value) const { return _is_valid_pointer(file_, line_, name, value); }
  bool length(const char* name, ULONG value) const { return _is_valid_length(file_, line_, name, value); }
  bool id(const char* name, ULONG value) const { return _is_valid_id(file_, line_, name, value); }
  bool string(const char* name, const char* value) const { return _is_valid_string(file_, line_, name, value); }
  bool bytes(const char* bytesName, const void* value, const char* lengthName, ULONG length) const {
    return _is_valid_bytes(file_, line_, bytesName, value, lengthName, length);
  }

  // Failure exits: log "<name> return: 0x%08x" at ERROR and hand the code back.
  ULONG fail(ULONG code) const {
    VLOG_ERROR(name_, "%s return: 0x%08x", name_, code);
    return code;
  }
  ULONG invalid_argument() const { return fail(invalidCode_); }
  ULONG invalid_handle(const char* what) const {
    VLOG_ERROR(name_, "%s is not a live handle of the expected kind", what);
    return fail(SAR_INVALIDHANDLEERR);
  }
  // Operations with no emulation over the crypto library.
  ULONG not_emulated() const { return fail(SAR_NOT_EMULATED); }
  // Exports whose behaviour is not built yet: refuse openly instead of pretending.
  ULONG not_implemented() const {
    VLOG_ERROR(name_, "%s is not implemented", name_);
    return fail(SAR_NOTSUPPORTYETERR);
  }

  // Calls the vendor module's function of this export for a device type, with the caller's
  // arguments (vendor handles already substituted). Answers and logs the three vendor-route outcomes.
  template <class Fn, class... Args>
  ULONG forward(int32_t type, Fn SkfDll::*entry, Args&&... args) const {
    SkfDll* dll = find_skf_dll(type);
    if (!dll) {
      VLOG_ERROR(name_, "device type : %d is not support", type);
      return fail(SAR_UNKNOWNERR);
    }
    Fn fn = dll->*entry;
    if (!fn) {
      VLOG_ERROR(name_, "%s is not support", name_);
      return fail(SAR_NOTSUPPORTYETERR);
    }
    ULONG rc = fn(std::forward<Args>(args)...);
    if (rc != SAR_OK) {
      VLOG_ERROR(name_, "%s fail, error : 0x%08x", name_, rc);
      return fail(rc);
    }
    return SAR_OK;
  }

 private:
  CallStackTracer tracer_;
  const char* name_;
  ULONG invalidCode_;
  const char* file_ = "";
  int line_ = 0;
};

// Runs the argument checks of an export; the first failing check ends the export.
#define VOREL_VALIDATE(call, checks)                     \
  do {                                                   \
    if (!((call).at(__FILE__, __LINE__), (checks))) {    \
      return (call).invalid_argument();                  \
    }                                                    \
  } while (0)

// The route test: true when a vendor module serves the type.
inline bool is_vendor_type(int32_t type) { return find_skf_dll(type) != nullptr; }

}  // namespace vorel
