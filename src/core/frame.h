// The frame every export runs in: call trace, argument checks bound to the export's validation
// line, the exception guard, vendor forwarding, the size contract of output buffers and the
// logging of failures.
#pragma once

#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <utility>

#include "core/errors.h"
#include "core/gate.h"
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
  // Logs "<function> fail, error : <rc>" and answers the SKF code for a crypto-library failure.
  ULONG crypto_failed(const char* function, int rc) const {
    VLOG_ERROR(name_, "%s fail, error : %d", function, rc);
    return sar_from_vorel(rc, name_);
  }

  // Calls the vendor module's function of this export with the caller's arguments (vendor
  // handles already substituted). A missing function answers SAR_NOTSUPPORTYETERR; the vendor's
  // own failure code comes back unchanged. Only the outcome is logged here.
  template <class Fn, class... Args>
  ULONG vendor_call(const SkfDll& dll, Fn SkfDll::*entry, Args&&... args) const {
    return vendor_call_named(name_, dll, entry, std::forward<Args>(args)...);
  }
  // The same for a vendor function other than the export's own, named in the messages.
  template <class Fn, class... Args>
  ULONG vendor_call_named(const char* function, const SkfDll& dll, Fn SkfDll::*entry, Args&&... args) const {
    Fn fn = dll.*entry;
    if (!fn) {
      VLOG_ERROR(name_, "%s is not support", function);
      return SAR_NOTSUPPORTYETERR;
    }
    ULONG rc = fn(std::forward<Args>(args)...);
    if (rc != SAR_OK) VLOG_ERROR(name_, "%s fail, error : 0x%08x", function, rc);
    return rc;
  }

  // vendor_call with the return line: the whole vendor route of most exports.
  template <class Fn, class... Args>
  ULONG forward(const SkfDll& dll, Fn SkfDll::*entry, Args&&... args) const {
    return finish(vendor_call(dll, entry, std::forward<Args>(args)...));
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

// The size contract of every output buffer, answered before any state changes: a null buffer
// asks the size; a short one gets the size and SAR_BUFFER_TOO_SMALL; else the bytes are copied.
// slack: how many bytes short a buffer may be and still be accepted; what does not fit in the
// caller's buffer is never written, and the length reported is what was written.
inline ULONG put_bytes(const void* data, std::size_t len, void* out, ULONG* outLen, ULONG slack = 0) {
  if (len > UINT32_MAX) return SAR_FAIL;
  ULONG size = static_cast<ULONG>(len);
  if (!out) {
    *outLen = size;
    return SAR_OK;
  }
  ULONG room = *outLen;
  *outLen = size;
  if (room < size && size - room > slack) return SAR_BUFFER_TOO_SMALL;
  ULONG n = room < size ? room : size;
  if (n > 0) std::memcpy(out, data, n);
  *outLen = n;
  return SAR_OK;
}

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

// Publishes a new record and writes its handle to *out. When it cannot be published (no memory:
// the exception goes on to the frame), undo() runs first, so that a handle the vendor just gave
// out does not stay open on the token.
template <class T, class Undo>
ULONG publish_record(const std::shared_ptr<T>& record, HANDLE* out, Undo undo) {
  try {
    publish(record);
  } catch (...) {
    undo();
    throw;
  }
  *out = record.get();
  return SAR_OK;
}

template <class T>
ULONG publish_record(const std::shared_ptr<T>& record, HANDLE* out) {
  return publish_record(record, out, [] {});
}

// On the vendor route: the vendor makes a key, hash or MAC handle into its last argument, and a
// new handle record of that kind wraps it.
template <class Fn, class... Args>
ULONG wrap_vendor_handle(const ExportCall& call, const SkfDll& dll, Fn SkfDll::*entry, int32_t type, uint32_t kind,
                         HANDLE* out, Args&&... args) {
  auto record = new_record<HandleRecord>(type, kind);
  ULONG rc = call.vendor_call(dll, entry, std::forward<Args>(args)..., &record->vendorHandle);
  if (rc != SAR_OK) return rc;
  HANDLE vendorHandle = record->vendorHandle;
  return publish_record(record, out, [&dll, vendorHandle] {
    if (dll.SKF_CloseHandle) dll.SKF_CloseHandle(vendorHandle);
  });
}

// Closes a handle; what was opened under it stays open (docs/handles.md). On a vendor-served type
// the vendor closes its own handle first, and a vendor that refuses keeps ours open so that the
// caller may try again.
template <class Fn>
ULONG close_handle(const ExportCall& call, int32_t type, Fn SkfDll::*entry, HANDLE vendorHandle, HANDLE handle) {
  if (auto dll = vendor_module(type)) {
    ULONG rc = call.vendor_call(*dll, entry, vendorHandle);
    if (rc != SAR_OK) return rc;
  }
  retire(handle);
  return SAR_OK;
}

}  // namespace vorel
