// Connected devices: connection, state, information, label, the advisory device lock and
// device authentication. Each function answers an SKF code and logs the cause of a failure;
// the export's frame writes the return line.
#pragma once

#include <string>

#include "core/frame.h"
#include "core/skf_dll/skf_dll.h"

namespace vorel {

// Connects to the vendor's device own ("?": the first one its module lists). On success *out is
// the handle of a new device record holding the vendor's handle and DEVINFO; on failure nothing
// stays open, on our side or the vendor's.
ULONG connect_vendor(const ExportCall& call, const SkfDll& dll, int32_t type, std::string own, DEVHANDLE* out);
// Connects to the crypto library's device of that type and serial number ("?": the first one).
// On success *out is the handle of a new record with the serial as name and DEVINFO filled.
ULONG connect_emulated(const ExportCall& call, int32_t type, const std::string& own, DEVHANDLE* out);

// Closes the handle. A vendor that refuses keeps the record alive, without its lock.
ULONG disconnect(const ExportCall& call, const std::shared_ptr<DeviceRecord>& device, DEVHANDLE handle);

// Whether a crypto-library device of that type and serial number ("?": any) is present.
ULONG device_state(int32_t type, const std::string& own, ULONG* state);

// The DEVINFO of a crypto-library device, capabilities as the library reports them.
void GetDeviceInfoFromVorelCrypto(DeviceRecord& device);
// Copies the cached DEVINFO out, logging each field at DEBUG.
void get_device_info(DeviceRecord& device, DEVINFO* info);
// Replaces the cached label of a crypto-library device; the token keeps its own.
ULONG set_label(DeviceRecord& device, const char* label);

// The advisory lock of SKF_LockDev / SKF_UnlockDev, recursive for its owning thread.
ULONG lock_device(const ExportCall& call, DeviceRecord& device);
ULONG unlock_device(const ExportCall& call, DeviceRecord& device);

// Random bytes from the crypto library; on a device with an authentication key the first 16 of
// them become the challenge that SKF_DevAuth answers.
ULONG gen_random(const ExportCall& call, DeviceRecord& device, BYTE* out, ULONG len);
// Checks the SM4-ECB encryption of the last challenge under the device type's key; the
// challenge is used once. Devices without a key have no authentication (SAR_NOT_EMULATED).
ULONG dev_auth(const ExportCall& call, DeviceRecord& device, const BYTE* data, ULONG len);

}  // namespace vorel
