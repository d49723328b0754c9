// Vendor devices: the names a module lists, and connecting to one.
#pragma once

#include <string>

#include "core/config.h"
#include "skf/names.h"
#include "vendor/call.h"

namespace vorel {

// Connects to the vendor's device own ("?": the first one its module lists). On success *out is
// the handle of a new device record holding the vendor's handle and DEVINFO; on failure nothing
// stays open, on our side or the vendor's.
ULONG connect_vendor(const VendorCall& v, int32_t type, std::string own, DEVHANDLE* out);

// The present devices of a vendor-served configuration entry through its module (null: none
// loaded), named <type>#<vendor's name>; nothing, logged, when the module, the USB token or the
// listing is missing.
void GetDeviceNameFromSKF(const DeviceConfig& device, const SkfDll* dll, NameList& names);

}  // namespace vorel
