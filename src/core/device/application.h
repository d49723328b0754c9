// Applications: the one emulated application "VOREL", opened with its containers, and vendor
// applications wrapped in handles of our own. Each function answers an SKF code.
#pragma once

#include "core/frame.h"

namespace vorel {

// The list of the one emulated application: "VOREL" and a single zero byte (6 bytes).
ULONG enum_applications(LPSTR list, ULONG* size);
// Opens "VOREL" (exactly) of the device and builds its containers from the device's key pairs.
ULONG open_application(const DeviceRecord& device, const char* name, HAPPLICATION* out);
// Opens the vendor's application and wraps it in a new handle.
ULONG open_vendor_application(const ExportCall& call, const SkfDll& dll, const DeviceRecord& device, LPSTR name,
                              HAPPLICATION* out);
}  // namespace vorel
