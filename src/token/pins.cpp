#include "token/pins.h"

namespace vorel {

namespace {

// The crypto library numbers the administrator PIN 2 and the user PIN 1.
int library_type(ULONG pinType) { return pinType == ADMIN_TYPE ? VOREL_PWD_SO : VOREL_PWD_USER; }

// The answer to a password call of the crypto library: -5 hands out the remaining tries.
ULONG pin_result(Ctx ctx, const char* function, int rc, unsigned retries, ULONG* out) {
  switch (rc) {
    case VOREL_OK:
      return SAR_OK;
    case VOREL_ERR_PIN_INCORRECT:
      *out = retries;
      return SAR_PIN_INCORRECT;
    case VOREL_ERR_PIN_LEN_RANGE:
      return SAR_PIN_LEN_RANGE;
    default:
      VLOG_ERROR(ctx.name(), "%s fail, error : %d", function, rc);
      return SAR_FAIL;
  }
}

}  // namespace

ULONG verify_pin(Ctx ctx, ApplicationRecord& app, ULONG pinType, LPSTR pin, ULONG* retries) {
  unsigned left = 0;
  int rc = VorelPKICryptoVerifyPwd(app.cryptoDevice.get(), library_type(pinType), pin, &left);
  return pin_result(ctx, "VorelPKICryptoVerifyPwd", rc, left, retries);
}

ULONG change_pin(Ctx ctx, ApplicationRecord& app, ULONG pinType, LPSTR oldPin, LPSTR newPin, ULONG* retries) {
  unsigned left = 0;
  int rc = VorelPKICryptoChangePwd(app.cryptoDevice.get(), library_type(pinType), oldPin, newPin, &left);
  return pin_result(ctx, "VorelPKICryptoChangePwd", rc, left, retries);
}

ULONG unblock_pin(Ctx ctx, ApplicationRecord& app, LPSTR adminPin, LPSTR newUserPin, ULONG* retries) {
  unsigned left = 0xFFFFFFFFu;
  int rc = VorelPKICryptoUnlockPwd(app.cryptoDevice.get(), VOREL_PWD_USER, adminPin, newUserPin, &left);
  // A library that leaves the count unfilled is asked for the administrator PIN's tries.
  if (rc == VOREL_ERR_PIN_INCORRECT && left == 0xFFFFFFFFu)
    VorelPKICryptoGetPwdRetryNum(app.cryptoDevice.get(), VOREL_PWD_SO, &left);
  ULONG result = pin_result(ctx, "VorelPKICryptoVerifyPwd", rc, left, retries);
  if (result == SAR_OK) app.adminPinVerified = 1;
  return result;
}

ULONG pin_info(Ctx ctx, ApplicationRecord& app, ULONG pinType, ULONG* maxRetries, ULONG* remaining, BOOL* defaultPin) {
  unsigned left = 0;
  int rc = VorelPKICryptoGetPwdRetryNum(app.cryptoDevice.get(), library_type(pinType), &left);
  if (rc != VOREL_OK) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoGetPwdRetryNum fail, error : %d", rc);
    return SAR_FAIL;
  }
  *maxRetries = 6;  // a fixed answer, not asked of the token
  *remaining = left;
  *defaultPin = FALSE;
  return SAR_OK;
}

ULONG secure_state(ApplicationRecord& app, ULONG* state) {
  *state = app.adminPinVerified ? 0 : app.userPinVerified ? 1 : 2;
  _log("*pulState", static_cast<long>(*state));
  return SAR_OK;
}

ULONG clear_secure_state(ApplicationRecord& app) {
  app.clear_pins();
  VorelPKICryptoClearPwdCache(app.cryptoDevice.get());
  return SAR_OK;
}

}  // namespace vorel
