// Application exports.
#include "token/application.h"

#include "exports/frame.h"

using namespace vorel;

extern "C" {

ULONG DEVAPI SKF_CreateApplication(DEVHANDLE hDev, LPSTR szAppName, LPSTR szAdminPin, DWORD dwAdminPinRetryCount,
                                   LPSTR szUserPin, DWORD dwUserPinRetryCount, DWORD dwCreateFileRights,
                                   HAPPLICATION* phApplication) {
  return run_export("SKF_CreateApplication", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(
        call, call.pointer("hDev", hDev) && call.string("szAppName", szAppName) &&
                  call.secret("szAdminPin", szAdminPin) && call.length("dwAdminPinRetryCount", dwAdminPinRetryCount) &&
                  call.secret("szUserPin", szUserPin) && call.length("dwUserPinRetryCount", dwUserPinRetryCount) &&
                  call.length("dwCreateFileRights", dwCreateFileRights) &&
                  call.pointer("phApplication", phApplication));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    auto dll = vendor_module(device->type);
    if (!dll) return call.not_emulated();  // the one application always exists
    return call.finish(open_wrapped(call.vendor(*dll), &SkfDll::SKF_CreateApplication, &SkfDll::SKF_CloseApplication,
                                    new_record<ApplicationRecord>(device->type), phApplication, Whole(),
                                    device->vendorDevice, szAppName, szAdminPin, dwAdminPinRetryCount, szUserPin,
                                    dwUserPinRetryCount, dwCreateFileRights));
  });
}

ULONG DEVAPI SKF_EnumApplication(DEVHANDLE hDev, LPSTR szAppName, ULONG* pulSize) {
  return run_export("SKF_EnumApplication", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.pointer("pulSize", pulSize));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.forward(*dll, &SkfDll::SKF_EnumApplication, device->vendorDevice, szAppName, pulSize);
    return call.finish(enum_applications(szAppName, pulSize));
  });
}

ULONG DEVAPI SKF_DeleteApplication(DEVHANDLE hDev, LPSTR szAppName) {
  return run_export("SKF_DeleteApplication", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.string("szAppName", szAppName));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.forward(*dll, &SkfDll::SKF_DeleteApplication, device->vendorDevice, szAppName);
    return call.not_emulated();
  });
}

ULONG DEVAPI SKF_OpenApplication(DEVHANDLE hDev, LPSTR szAppName, HAPPLICATION* phApplication) {
  return run_export("SKF_OpenApplication", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.string("szAppName", szAppName) &&
                             call.pointer("phApplication", phApplication));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.finish(open_wrapped(call.vendor(*dll), &SkfDll::SKF_OpenApplication, &SkfDll::SKF_CloseApplication,
                                      new_record<ApplicationRecord>(device->type), phApplication, Whole(),
                                      device->vendorDevice, szAppName));
    return call.finish(open_application(*device, szAppName, phApplication));
  });
}

ULONG DEVAPI SKF_CloseApplication(HAPPLICATION hApplication) {
  return run_export("SKF_CloseApplication", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    return call.finish(close_handle(call, static_cast<int32_t>(app->type), &SkfDll::SKF_CloseApplication,
                                    app->vendorApplication, hApplication));
  });
}

}  // extern "C"
