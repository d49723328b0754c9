// Emulated devices: connection, state, information, label, the advisory device lock, random
// bytes and device authentication. Each function answers an SKF code and logs the cause of a
// failure; the export writes the return line.
#pragma once

#include <string>

#include "skf/names.h"
#include "token/common.h"

namespace vorel {

// Connects to the crypto library's device of that type and serial number ("?": the first one).
// On success *out is the handle of a new record with the serial as name and DEVINFO filled.
ULONG connect_emulated(Ctx ctx, int32_t type, const std::string& own, DEVHANDLE* out);

// The names of the crypto library's devices of a type (at most 1024 bytes).
void GetDeviceNameFromVorelCrypto(int32_t type, NameList& names);

// Whether a crypto-library device of that type and serial number ("?": any) is present.
ULONG device_state(int32_t type, const std::string& own, ULONG* state);

// The DEVINFO of a crypto-library device, capabilities as the library reports them.
void GetDeviceInfoFromVorelCrypto(DeviceRecord& device);
// Replaces the cached label of a crypto-library device; the token keeps its own.
ULONG set_label(DeviceRecord& device, const char* label);

// The advisory lock of SKF_LockDev / SKF_UnlockDev, recursive for its owning thread.
ULONG lock_device(Ctx ctx, DeviceRecord& device);
ULONG unlock_device(Ctx ctx, DeviceRecord& device);

// Random bytes from the crypto library; on a device with an authentication key the first 16 of
// them become the challenge that SKF_DevAuth answers.
ULONG gen_random(Ctx ctx, DeviceRecord& device, BYTE* out, ULONG len);
// Checks the SM4-ECB encryption of the last challenge under the device type's key; the
// challenge is used once. Devices without a key have no authentication (SAR_NOT_EMULATED).
ULONG dev_auth(Ctx ctx, DeviceRecord& device, const BYTE* data, ULONG len);

}  // namespace vorel
