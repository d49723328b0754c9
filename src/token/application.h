// The one emulated application, "VOREL", opened with its containers. Each function answers an SKF
// code.
#pragma once

#include "token/common.h"

namespace vorel {

// The list of the one emulated application: "VOREL" and a single zero byte (6 bytes).
ULONG enum_applications(LPSTR list, ULONG* size);
// Opens "VOREL" (exactly) of the device and builds its containers from the device's key pairs.
ULONG open_application(const DeviceRecord& device, const char* name, HAPPLICATION* out);

}  // namespace vorel
