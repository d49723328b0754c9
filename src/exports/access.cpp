// Device authentication and PIN exports.
#include "exports/frame.h"
#include "skf/pins.h"
#include "token/device.h"
#include "token/pins.h"

using namespace vorel;

extern "C" {

ULONG DEVAPI SKF_ChangeDevAuthKey(DEVHANDLE hDev, BYTE* pbKeyValue, ULONG ulKeyLen) {
  return run_export("SKF_ChangeDevAuthKey", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.bytes("pbKeyValue", pbKeyValue, "ulKeyLen", ulKeyLen));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.forward(*dll, &SkfDll::SKF_ChangeDevAuthKey, device->vendorDevice, pbKeyValue, ulKeyLen);
    return call.not_emulated();
  });
}

ULONG DEVAPI SKF_DevAuth(DEVHANDLE hDev, BYTE* pbAuthData, ULONG ulLen) {
  return run_export("SKF_DevAuth", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.bytes("pbAuthData", pbAuthData, "ulLen", ulLen));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.forward(*dll, &SkfDll::SKF_DevAuth, device->vendorDevice, pbAuthData, ulLen);
    return call.finish(dev_auth(call.ctx(), *device, pbAuthData, ulLen));
  });
}

ULONG DEVAPI SKF_ChangePIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szOldPin, LPSTR szNewPin,
                           ULONG* pulRetryCount) {
  return run_export("SKF_ChangePIN", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.secret("szOldPin", szOldPin) &&
                             call.secret("szNewPin", szNewPin) && call.pointer("pulRetryCount", pulRetryCount));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    app->clear_pins();
    if (!pin_type_valid(ulPINType)) return call.fail(SAR_USER_TYPE_INVALID);
    if (auto dll = vendor_module(static_cast<int32_t>(app->type)))
      return call.forward(*dll, &SkfDll::SKF_ChangePIN, app->vendorApplication, ulPINType, szOldPin, szNewPin,
                          pulRetryCount);
    return call.finish(change_pin(call.ctx(), *app, ulPINType, szOldPin, szNewPin, pulRetryCount));
  });
}

ULONG DEVAPI SKF_GetPINInfo(HAPPLICATION hApplication, ULONG ulPINType, ULONG* pulMaxRetryCount,
                            ULONG* pulRemainRetryCount, BOOL* pbDefaultPin) {
  return run_export("SKF_GetPINInfo", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) &&
                             call.pointer("pulMaxRetryCount", pulMaxRetryCount) &&
                             call.pointer("pulRemainRetryCount", pulRemainRetryCount) &&
                             call.pointer("pbDefaultPin", pbDefaultPin));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    if (!pin_type_valid(ulPINType)) return call.fail(SAR_USER_TYPE_INVALID);
    if (auto dll = vendor_module(static_cast<int32_t>(app->type)))
      return call.forward(*dll, &SkfDll::SKF_GetPINInfo, app->vendorApplication, ulPINType, pulMaxRetryCount,
                          pulRemainRetryCount, pbDefaultPin);
    return call.finish(pin_info(call.ctx(), *app, ulPINType, pulMaxRetryCount, pulRemainRetryCount, pbDefaultPin));
  });
}

ULONG DEVAPI SKF_VerifyPIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szPIN, ULONG* pulRetryCount) {
  return run_export("SKF_VerifyPIN", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.secret("szPIN", szPIN) &&
                             call.pointer("pulRetryCount", pulRetryCount));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    app->clear_pins();  // any attempt logs the application out, on both routes
    if (!pin_type_valid(ulPINType)) return call.fail(SAR_USER_TYPE_INVALID);
    auto dll = vendor_module(static_cast<int32_t>(app->type));
    ULONG rc = dll ? call.vendor(*dll)(&SkfDll::SKF_VerifyPIN, app->vendorApplication, ulPINType, szPIN, pulRetryCount)
                   : verify_pin(call.ctx(), *app, ulPINType, szPIN, pulRetryCount);
    if (rc != SAR_OK) return call.fail(rc);
    app->mark_pin(ulPINType);
    _log("*pulRetryCount", static_cast<long>(*pulRetryCount));
    return SAR_OK;
  });
}

ULONG DEVAPI SKF_UnblockPIN(HAPPLICATION hApplication, LPSTR szAdminPIN, LPSTR szNewUserPIN, ULONG* pulRetryCount) {
  return run_export("SKF_UnblockPIN", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.secret("szAdminPIN", szAdminPIN) &&
                             call.secret("szNewUserPIN", szNewUserPIN) && call.pointer("pulRetryCount", pulRetryCount));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    app->adminPinVerified = 0;
    if (auto dll = vendor_module(static_cast<int32_t>(app->type)))
      return call.forward(*dll, &SkfDll::SKF_UnblockPIN, app->vendorApplication, szAdminPIN, szNewUserPIN,
                          pulRetryCount);
    return call.finish(unblock_pin(call.ctx(), *app, szAdminPIN, szNewUserPIN, pulRetryCount));
  });
}

ULONG DEVAPI SKF_ClearSecureState(HAPPLICATION hApplication) {
  return run_export("SKF_ClearSecureState", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    if (auto dll = vendor_module(static_cast<int32_t>(app->type)))
      return call.forward(*dll, &SkfDll::SKF_ClearSecureState, app->vendorApplication);
    return call.finish(clear_secure_state(*app));
  });
}

ULONG DEVAPI SKF_GetSecureState(HAPPLICATION hApplication, ULONG* pulState) {
  return run_export("SKF_GetSecureState", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.pointer("pulState", pulState));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    if (auto dll = vendor_module(static_cast<int32_t>(app->type)))
      return call.forward(*dll, &SkfDll::SKF_GetSecureState, app->vendorApplication, pulState);
    return call.finish(secure_state(*app, pulState));
  });
}

}  // extern "C"
