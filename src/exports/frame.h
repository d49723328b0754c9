// The frame every export runs in: call trace, argument checks bound to the export's validation
// line, the exception guard, the one choice of route, vendor forwarding and the logging of
// failures. Only the exports include it; the wings below get a Ctx (core/context.h).
#pragma once

#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <utility>

#include "core/buffers.h"
#include "core/context.h"
#include "core/errors.h"
#include "core/gate.h"
#include "core/log.h"
#include "core/records.h"
#include "core/validate.h"
#include "skf.h"
#include "vendor/call.h"
#include "vendor/skf_dll.h"

namespace vorel {

class ExportCall {
 public:
  // invalidCode is what a failed argument check answers (the block-cipher exports differ).
  explicit ExportCall(const char* name, ULONG invalidCode = SAR_INVALIDPARAMERR)
      : tracer_(name), name_(name), invalidCode_(invalidCode) {}

  const char* name() const { return name_; }
  // What the wings below the door are told of the call.
  Ctx ctx() const { return Ctx(name_); }
  operator Ctx() const { return ctx(); }  // NOLINT: a wing is handed the context, never the frame
  VendorCall vendor(const SkfDll& dll) const { return VendorCall(ctx(), dll); }

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
  bool secret(const char* name, const char* value) const { return _is_valid_secret(file_, line_, name, value); }
  bool bytes(const char* bytesName, const void* value, const char* lengthName, ULONG length) const {
    return _is_valid_bytes(file_, line_, bytesName, value, lengthName, length);
  }

  // Failure exits: log "<name> return: 0x%08x" at ERROR and hand the code back.
  ULONG fail(ULONG code) const {
    VLOG_ERROR(name_, "%s return: 0x%08x", name_, code);
    return code;
  }
  // The one return line for whatever the emulated route answered.
  ULONG finish(ULONG code) const { return code == SAR_OK ? SAR_OK : fail(code); }
  ULONG invalid_argument() const { return fail(invalidCode_); }
  ULONG invalid_handle(const char* what) const {
    VLOG_ERROR(name_, "%s is not a live handle of the expected kind", what);
    return fail(SAR_INVALIDHANDLEERR);
  }
  // Operations with no emulation over the crypto library.
  ULONG not_emulated() const { return fail(SAR_NOT_EMULATED); }
  // A vendor-served record whose type no longer has a module.
  ULONG unknown_type(int32_t type) const {
    VLOG_ERROR(name_, "device type : %d is not support", type);
    return fail(SAR_UNKNOWNERR);
  }


  // The vendor's function of this export with the return line: the whole vendor route of most
  // exports.
  template <class Fn, class... Args>
  ULONG forward(const SkfDll& dll, Fn SkfDll::*entry, Args&&... args) const {
    return finish(vendor(dll)(entry, std::forward<Args>(args)...));
  }

 private:
  CallStackTracer tracer_;
  const char* name_;
  ULONG invalidCode_;
  const char* file_ = "";
  int line_ = 0;
};

// Runs an export's body; no exception leaves it. An allocation failure answers SAR_MEMORYERR,
// anything else thrown SAR_FAIL, both logged.
// invalidCode: the answer to a failed argument check (the block-cipher exports differ).
template <class Body>
ULONG run_export(const char* name, ULONG invalidCode, Body&& body) noexcept {
  GatePass pass;
  ExportCall call(name, invalidCode);
  try {
    return body(call);
  } catch (const std::bad_alloc&) {
    VLOG_ERROR(name, "out of memory");
    return call.fail(SAR_MEMORYERR);
  } catch (const std::exception& e) {
    VLOG_ERROR(name, "unexpected failure: %s", e.what());
    return call.fail(SAR_FAIL);
  } catch (...) {
    VLOG_ERROR(name, "unexpected failure");
    return call.fail(SAR_FAIL);
  }
}

template <class Body>
ULONG run_export(const char* name, Body&& body) noexcept {
  return run_export(name, SAR_INVALIDPARAMERR, std::forward<Body>(body));
}

// Runs the argument checks of an export; the first failing check ends the export.
#define VOREL_VALIDATE(call, checks)                  \
  do {                                                \
    if (!((call).at(__FILE__, __LINE__), (checks))) { \
      return (call).invalid_argument();               \
    }                                                 \
  } while (0)

// The live generic handle of the kind an export takes, into out; SAR_OK, else the refusal, logged:
// SAR_INVALIDHANDLEERR for anything that is not a live generic handle, SAR_FAIL for one of another
// kind (docs/symmetric.md), so that no vendor is handed a handle of the wrong kind.
// helper: the cipher helper whose entry test this is, which logs the refusal as its own.
inline ULONG find_handle(const ExportCall& call, HANDLE handle, const char* what, uint32_t kind,
                         std::shared_ptr<HandleRecord>& out, const char* helper = nullptr) {
  out = find_handle(handle);
  if (!out) return call.invalid_handle(what);
  if (out->kind == kind) return SAR_OK;
  out.reset();
  switch (kind) {
    case kSessionKey:
      VLOG_ERROR(call.name(), "key_handle->m_flag != 1");
      if (helper) VLOG_ERROR(helper, "%s return: 0x%08x", helper, SAR_FAIL);
      break;
    case kMac:
      VLOG_ERROR(call.name(), "mac_handle->m_flag != 4");
      break;
    case kHash:
      VLOG_ERROR(call.name(), "%s is not a hash handle", what);
      break;
    default:
      VLOG_ERROR(call.name(), "%s is a handle of another kind", what);
  }
  return call.fail(SAR_FAIL);
}

// Closes a handle; what was opened under it stays open (docs/handles.md). On a vendor-served type
// the vendor closes its own handle first, and a vendor that refuses keeps ours open so that the
// caller may try again.
template <class Fn>
ULONG close_handle(const ExportCall& call, int32_t type, Fn SkfDll::*entry, HANDLE vendorHandle, HANDLE handle) {
  if (auto dll = vendor_module(type)) {
    ULONG rc = call.vendor(*dll)(entry, vendorHandle);
    if (rc != SAR_OK) return rc;
  }
  retire(handle);
  return SAR_OK;
}

}  // namespace vorel
