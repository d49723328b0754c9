// Every call into a vendor module goes through a VendorCall: the module held for the call, and the
// export it serves, for the messages. A vendor's failure code comes back unchanged.
#pragma once

#include <memory>
#include <utility>

#include "core/context.h"
#include "core/records.h"
#include "vendor/skf_dll.h"

namespace vorel {

class VendorCall {
 public:
  VendorCall(Ctx ctx, const SkfDll& dll) : ctx_(ctx), dll_(dll) {}
  Ctx ctx() const { return ctx_; }
  const SkfDll& dll() const { return dll_; }

  // The module's function of this export: a missing one answers SAR_NOTSUPPORTYETERR, logged as
  // "<export> is not support"; a failure is logged as "<export> fail, error : 0x%08x".
  template <class Fn, class... Args>
  ULONG operator()(Fn SkfDll::*entry, Args&&... args) const {
    return named(ctx_.name(), entry, std::forward<Args>(args)...);
  }
  // The same for a function other than the export's own, named in the messages.
  template <class Fn, class... Args>
  ULONG named(const char* function, Fn SkfDll::*entry, Args&&... args) const {
    Fn fn = dll_.*entry;
    if (!fn) {
      VLOG_ERROR(ctx_.name(), "%s is not support", function);
      return SAR_NOTSUPPORTYETERR;
    }
    ULONG rc = fn(std::forward<Args>(args)...);
    if (rc != SAR_OK) VLOG_ERROR(ctx_.name(), "%s fail, error : 0x%08x", function, rc);
    return rc;
  }
  // Unlogged, for undoing what a failed call left open; a missing function is not asked.
  template <class Fn, class... Args>
  void quiet(Fn SkfDll::*entry, Args&&... args) const {
    if (Fn fn = dll_.*entry) fn(std::forward<Args>(args)...);
  }

 private:
  Ctx ctx_;
  const SkfDll& dll_;
};

// The vendor's handle a record wraps.
inline DEVHANDLE& vendor_slot(DeviceRecord& r) { return r.vendorDevice; }
inline HAPPLICATION& vendor_slot(ApplicationRecord& r) { return r.vendorApplication; }
inline HCONTAINER& vendor_slot(ContainerRecord& r) { return r.vendorContainer; }
inline HANDLE& vendor_slot(HandleRecord& r) { return r.vendorHandle; }

// The one wrap-and-undo for every handle a vendor makes: open writes the vendor's handle into the
// record (its last argument), then() completes the record, and the record is published to *out.
// When then() or the publication fails, the vendor's handle is closed again with close, so
// nothing stays open on the token.
template <class Record, class Open, class Close, class Then, class... Args>
ULONG open_wrapped(const VendorCall& v, Open SkfDll::*open, Close SkfDll::*close, const std::shared_ptr<Record>& rec,
                   HANDLE* out, Then then, Args&&... args) {
  ULONG rc = v(open, std::forward<Args>(args)..., &vendor_slot(*rec));
  if (rc != SAR_OK) return rc;
  auto undo = [&v, close, h = vendor_slot(*rec)] { v.quiet(close, h); };
  try {
    rc = then(*rec);
  } catch (...) {
    undo();
    throw;
  }
  if (rc != SAR_OK) {
    undo();
    return rc;
  }
  return publish_record(rec, out, undo);
}

// Nothing to complete: the record is whole once the vendor's handle is in it.
struct Whole {
  template <class Record>
  ULONG operator()(Record&) const {
    return SAR_OK;
  }
};

// A key, hash or MAC handle the vendor makes, wrapped in a new handle record of that kind.
template <class Open, class... Args>
ULONG wrap_vendor_handle(const VendorCall& v, Open SkfDll::*open, int32_t type, uint32_t kind, HANDLE* out,
                         Args&&... args) {
  return open_wrapped(v, open, &SkfDll::SKF_CloseHandle, new_record<HandleRecord>(type, kind), out, Whole(),
                      std::forward<Args>(args)...);
}

}  // namespace vorel
