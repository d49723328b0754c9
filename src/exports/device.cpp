// Device management exports.
#include "core/device/device.h"

#include "core/device/names.h"
#include "core/frame.h"

using namespace vorel;

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
    if (auto dll = vendor_module(type)) return call.finish(connect_vendor(call, *dll, type, own, phDev));
    return call.finish(connect_emulated(call, type, own, phDev));
  });
}

ULONG DEVAPI SKF_DisConnectDev(DEVHANDLE hDev) {
  return run_export("SKF_DisConnectDev", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    return call.finish(disconnect(call, device, hDev));
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
    return call.finish(lock_device(call, *device));
  });
}

ULONG DEVAPI SKF_UnlockDev(DEVHANDLE hDev) {
  return run_export("SKF_UnlockDev", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type)) return call.forward(*dll, &SkfDll::SKF_UnlockDev, device->vendorDevice);
    return call.finish(unlock_device(call, *device));
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
