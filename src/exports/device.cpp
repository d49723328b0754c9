// Device management exports.
#include "token/device.h"

#include "exports/frame.h"
#include "skf/names.h"
#include "vendor/device.h"

using namespace vorel;

namespace {

// SKF_EnumDev's list of present devices: each configured entry's, in order, through its module
// or the crypto library, with the size contract of output buffers.
ULONG GetDeviceNamesFromKey(LPSTR szNameList, ULONG* pulSize) {
  NameList combined("GetDeviceNamesFromKey", kCombinedListSize);
  auto devices = GetVorelSKFConfig().devices();
  for (const DeviceConfig& d : *devices) {
    NameList one(d.isskf ? "GetDeviceNameFromSKF" : "GetDeviceNameFromVorelCrypto", kDeviceListSize);
    if (d.isskf)
      GetDeviceNameFromSKF(d, vendor_module(d.type).get(), one);
    else
      GetDeviceNameFromVorelCrypto(d.type, one);
    combined.append(one);
  }
  ULONG rc = put_bytes(combined.data(), combined.length(), szNameList, pulSize);
  if (rc != SAR_OK) VLOG_ERROR("GetDeviceNamesFromKey", "%s return: 0x%08x", "GetDeviceNamesFromKey", rc);
  if (rc == SAR_OK && szNameList)
    VLOG_DEBUG("GetDeviceNamesFromKey", "nameList : %.*s", static_cast<int>(combined.length()), combined.data());
  return rc;
}

// Copies the cached DEVINFO out, logging each field at DEBUG: both routes answer what the device
// said when it was connected.
void get_device_info(DeviceRecord& device, DEVINFO* out) {
  DEVINFO info;
  {
    std::lock_guard<std::mutex> guard(device.infoMutex);
    info = device.devInfo;
  }
  std::memset(out, 0, sizeof *out);
  *out = info;
  if (!log_enabled(LogLevel::Debug)) return;
  const char* f = "SKF_GetDevInfo";
  log_message(LogLevel::Debug, f, "Version: %d.%d", info.Version.major, info.Version.minor);
  log_message(LogLevel::Debug, f, "Manufacturer: %.64s", info.Manufacturer);
  log_message(LogLevel::Debug, f, "Issuer: %.64s", info.Issuer);
  log_message(LogLevel::Debug, f, "Label: %.32s", info.Label);
  log_message(LogLevel::Debug, f, "Serial Number: %.32s", info.SerialNumber);
  log_message(LogLevel::Debug, f, "Hardware Version: %d.%d", info.HWVersion.major, info.HWVersion.minor);
  log_message(LogLevel::Debug, f, "Firmware Version: %d.%d", info.FirmwareVersion.major, info.FirmwareVersion.minor);
  log_message(LogLevel::Debug, f, "Symmetric Algorithm Capabilities: %lu", static_cast<unsigned long>(info.AlgSymCap));
  log_message(LogLevel::Debug, f, "Asymmetric Algorithm Capabilities: %lu",
              static_cast<unsigned long>(info.AlgAsymCap));
  log_message(LogLevel::Debug, f, "Hash Algorithm Capabilities: %lu", static_cast<unsigned long>(info.AlgHashCap));
  log_message(LogLevel::Debug, f, "Device Authentication Algorithm ID: %lu",
              static_cast<unsigned long>(info.DevAuthAlgId));
  log_message(LogLevel::Debug, f, "Total Space: %lu", static_cast<unsigned long>(info.TotalSpace));
  log_message(LogLevel::Debug, f, "Free Space: %lu", static_cast<unsigned long>(info.FreeSpace));
  log_message(LogLevel::Debug, f, "Max ECC Buffer Size: %lu", static_cast<unsigned long>(info.MaxECCBufferSize));
  log_message(LogLevel::Debug, f, "Max Buffer Size: %lu", static_cast<unsigned long>(info.MaxBufferSize));
}

// Closes the handle. The lock goes first, so that its waiters stop waiting; a vendor that refuses
// keeps the record alive, without its lock.
ULONG disconnect(const ExportCall& call, DeviceRecord& device, DEVHANDLE handle) {
  std::shared_ptr<DeviceLock> lock;
  {
    std::lock_guard<std::mutex> guard(device.infoMutex);
    lock.swap(device.lock);
  }
  if (lock) lock->abandon();
  if (device.vendorDevice) {
    std::shared_ptr<const SkfDll> dll = vendor_module(device.type);
    if (!dll) return call.unknown_type(device.type);
    ULONG rc = call.vendor(*dll)(&SkfDll::SKF_DisConnectDev, device.vendorDevice);
    if (rc != SAR_OK) return call.fail(rc);
    device.vendorDevice = nullptr;
  }
  retire(handle);
  return SAR_OK;
}

}  // namespace

extern "C" {

// No device-event service: both event exports refuse at once, on every route.
ULONG DEVAPI SKF_WaitForDevEvent(LPSTR, ULONG*, ULONG*) {
  return run_export("SKF_WaitForDevEvent", [&](ExportCall& call) -> ULONG { return call.not_emulated(); });
}

ULONG DEVAPI SKF_CancelWaitForDevEvent(void) {
  return run_export("SKF_CancelWaitForDevEvent", [&](ExportCall& call) -> ULONG { return call.not_emulated(); });
}

ULONG DEVAPI SKF_EnumDev(BOOL bPresent, LPSTR szNameList, ULONG* pulSize) {
  return run_export("SKF_EnumDev", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("pulSize", pulSize));
    VLOG_DEBUG(call.name(), "bPresent : %d", bPresent);
    return call.finish(bPresent ? GetDeviceNamesFromKey(szNameList, pulSize)
                                : GetDeviceNamesFromConfig(szNameList, pulSize));
  });
}

ULONG DEVAPI SKF_ConnectDev(LPSTR szName, DEVHANDLE* phDev) {
  return run_export("SKF_ConnectDev", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.string("szName", szName) && call.pointer("phDev", phDev));
    int32_t type;
    std::string own;
    if (!is_valid_name(szName, &type, &own)) return call.invalid_argument();
    if (auto dll = vendor_module(type)) return call.finish(connect_vendor(call.vendor(*dll), type, own, phDev));
    return call.finish(connect_emulated(call.ctx(), type, own, phDev));
  });
}

ULONG DEVAPI SKF_DisConnectDev(DEVHANDLE hDev) {
  return run_export("SKF_DisConnectDev", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    return disconnect(call, *device, hDev);
  });
}

ULONG DEVAPI SKF_GetDevState(LPSTR szDevName, ULONG* pulDevState) {
  return run_export("SKF_GetDevState", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.string("szDevName", szDevName) && call.pointer("pulDevState", pulDevState));
    int32_t type;
    std::string own;
    if (!is_valid_name(szDevName, &type, &own)) {
      *pulDevState = DEV_UNKNOW_STATE;
      return call.invalid_argument();
    }
    if (auto dll = vendor_module(type)) return call.forward(*dll, &SkfDll::SKF_GetDevState, &own[0], pulDevState);
    return call.finish(device_state(type, own, pulDevState));
  });
}

ULONG DEVAPI SKF_SetLabel(DEVHANDLE hDev, LPSTR szLabel) {
  return run_export("SKF_SetLabel", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.string("szLabel", szLabel));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.forward(*dll, &SkfDll::SKF_SetLabel, device->vendorDevice, szLabel);
    return call.finish(set_label(*device, szLabel));
  });
}

ULONG DEVAPI SKF_GetDevInfo(DEVHANDLE hDev, DEVINFO* pDevInfo) {
  return run_export("SKF_GetDevInfo", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.pointer("pDevInfo", pDevInfo));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    // Both routes answer what the device said when it was connected.
    get_device_info(*device, pDevInfo);
    return SAR_OK;
  });
}

ULONG DEVAPI SKF_LockDev(DEVHANDLE hDev, ULONG ulTimeOut) {
  return run_export("SKF_LockDev", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev));
    VLOG_DEBUG(call.name(), "ulTimeOut : %d", static_cast<int>(ulTimeOut));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type)) {
      GateStepOut waiting;  // the vendor may wait for its holder, as lock_device does
      return call.forward(*dll, &SkfDll::SKF_LockDev, device->vendorDevice, ulTimeOut);
    }
    return call.finish(lock_device(call.ctx(), *device));
  });
}

ULONG DEVAPI SKF_UnlockDev(DEVHANDLE hDev) {
  return run_export("SKF_UnlockDev", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type)) return call.forward(*dll, &SkfDll::SKF_UnlockDev, device->vendorDevice);
    return call.finish(unlock_device(call.ctx(), *device));
  });
}

ULONG DEVAPI SKF_Transmit(DEVHANDLE hDev, BYTE* pbCommand, ULONG ulCommandLen, BYTE* pbData, ULONG* pulDataLen) {
  return run_export("SKF_Transmit", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) &&
                             call.bytes("pbCommand", pbCommand, "ulCommandLen", ulCommandLen) &&
                             call.pointer("pbData", pbData) && call.pointer("pulDataLen", pulDataLen));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.forward(*dll, &SkfDll::SKF_Transmit, device->vendorDevice, pbCommand, ulCommandLen, pbData,
                          pulDataLen);
    return call.not_emulated();
  });
}

}  // extern "C"
