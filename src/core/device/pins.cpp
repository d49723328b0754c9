#include "core/device/pins.h"

namespace vorel {

namespace {

// The crypto library numbers the administrator PIN 2 and the user PIN 1; 0: no such SKF type.
int library_type(ULONG pinType) {
  switch (pinType) {
    case ADMIN_TYPE:
      return VOREL_PWD_SO;
    case USER_TYPE:
      return VOREL_PWD_USER;
    default:
      return 0;
  }
}

void clear_flags(ApplicationRecord& app) {
  app.userPinVerified = 0;
  app.adminPinVerified = 0;
}

// The answer to a password call of the crypto library: -5 hands out the remaining tries.
ULONG pin_result(const ExportCall& call, const char* function, int rc, unsigned retries, ULONG* out) {
  switch (rc) {
    case VOREL_OK:
      return SAR_OK;
    case VOREL_ERR_PIN_INCORRECT:
      *out = retries;
      return SAR_PIN_INCORRECT;
    case VOREL_ERR_PIN_LEN_RANGE:
      return SAR_PIN_LEN_RANGE;
    default:
      VLOG_ERROR(call.name(), "%s fail, error : %d", function, rc);
      return SAR_FAIL;
  }
}

}  // namespace

ULONG verify_pin(const ExportCall& call, ApplicationRecord& app, ULONG pinType, LPSTR pin, ULONG* retries) {
  // A verification that fails logs the application out.
  clear_flags(app);
  int type = library_type(pinType);
  if (!type) return SAR_USER_TYPE_INVALID;
  ULONG rc;
  if (auto dll = vendor_module(app.type)) {
    rc = call.vendor_call(*dll, &SkfDll::SKF_VerifyPIN, app.vendorApplication, pinType, pin, retries);
  } else {
    unsigned left = 0;
    int result = VorelPKICryptoVerifyPwd(app.cryptoDevice.get(), type, pin, &left);
    rc = pin_result(call, "VorelPKICryptoVerifyPwd", result, left, retries);
  }
  if (rc != SAR_OK) return rc;
  (pinType == ADMIN_TYPE ? app.adminPinVerified : app.userPinVerified) = 1;
  _log("*pulRetryCount", static_cast<long>(*retries));
  return SAR_OK;
}

ULONG change_pin(const ExportCall& call, ApplicationRecord& app, ULONG pinType, LPSTR oldPin, LPSTR newPin,
                 ULONG* retries) {
  clear_flags(app);
  int type = library_type(pinType);
  if (!type) return SAR_USER_TYPE_INVALID;
  if (auto dll = vendor_module(app.type))
    return call.vendor_call(*dll, &SkfDll::SKF_ChangePIN, app.vendorApplication, pinType, oldPin, newPin, retries);
  unsigned left = 0;
  int rc = VorelPKICryptoChangePwd(app.cryptoDevice.get(), type, oldPin, newPin, &left);
  return pin_result(call, "VorelPKICryptoChangePwd", rc, left, retries);
}

ULONG unblock_pin(const ExportCall& call, ApplicationRecord& app, LPSTR adminPin, LPSTR newUserPin, ULONG* retries) {
  app.adminPinVerified = 0;
  if (auto dll = vendor_module(app.type))
    return call.vendor_call(*dll, &SkfDll::SKF_UnblockPIN, app.vendorApplication, adminPin, newUserPin, retries);
  unsigned left = 0xFFFFFFFFu;
  int rc = VorelPKICryptoUnlockPwd(app.cryptoDevice.get(), VOREL_PWD_USER, adminPin, newUserPin, &left);
  // A library that leaves the count unfilled is asked for the administrator PIN's tries.
  if (rc == VOREL_ERR_PIN_INCORRECT && left == 0xFFFFFFFFu)
    VorelPKICryptoGetPwdRetryNum(app.cryptoDevice.get(), VOREL_PWD_SO, &left);
  ULONG result = pin_result(call, "VorelPKICryptoVerifyPwd", rc, left, retries);
  if (result == SAR_OK) app.adminPinVerified = 1;
  return result;
}

ULONG pin_info(const ExportCall& call, ApplicationRecord& app, ULONG pinType, ULONG* maxRetries, ULONG* remaining,
               BOOL* defaultPin) {
  int type = library_type(pinType);
  if (!type) return SAR_USER_TYPE_INVALID;
  if (auto dll = vendor_module(app.type))
    return call.vendor_call(*dll, &SkfDll::SKF_GetPINInfo, app.vendorApplication, pinType, maxRetries, remaining,
                            defaultPin);
  unsigned left = 0;
  int rc = VorelPKICryptoGetPwdRetryNum(app.cryptoDevice.get(), type, &left);
  if (rc != VOREL_OK) {
    VLOG_ERROR(call.name(), "VorelPKICryptoGetPwdRetryNum fail, error : %d", rc);
    return SAR_FAIL;
  }
  *maxRetries = 6;  // a fixed answer, not asked of the token
  *remaining = left;
  *defaultPin = FALSE;
  return SAR_OK;
}

ULONG secure_state(const ExportCall& call, ApplicationRecord& app, ULONG* state) {
  if (auto dll = vendor_module(app.type))
    return call.vendor_call(*dll, &SkfDll::SKF_GetSecureState, app.vendorApplication, state);
  *state = app.adminPinVerified ? 0 : app.userPinVerified ? 1 : 2;
  _log("*pulState", static_cast<long>(*state));
  return SAR_OK;
}

ULONG clear_secure_state(const ExportCall& call, ApplicationRecord& app) {
  if (auto dll = vendor_module(app.type))
    return call.vendor_call(*dll, &SkfDll::SKF_ClearSecureState, app.vendorApplication);
  clear_flags(app);
  VorelPKICryptoClearPwdCache(app.cryptoDevice.get());
  return SAR_OK;
}

}  // namespace vorel
