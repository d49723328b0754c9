// PINs of an emulated application: the token's passwords. The export clears and sets the
// application's PIN flags around these (core/records.h); each answers an SKF code.
#pragma once

#include "token/common.h"

namespace vorel {

// pinType is ADMIN_TYPE or USER_TYPE (the export refuses any other).
ULONG verify_pin(Ctx ctx, ApplicationRecord& app, ULONG pinType, LPSTR pin, ULONG* retries);
ULONG change_pin(Ctx ctx, ApplicationRecord& app, ULONG pinType, LPSTR oldPin, LPSTR newPin, ULONG* retries);
// Sets the administrator flag again on success.
ULONG unblock_pin(Ctx ctx, ApplicationRecord& app, LPSTR adminPin, LPSTR newUserPin, ULONG* retries);
ULONG pin_info(Ctx ctx, ApplicationRecord& app, ULONG pinType, ULONG* maxRetries, ULONG* remaining, BOOL* defaultPin);
// From the application's flags: 0 administrator, 1 user, 2 neither.
ULONG secure_state(ApplicationRecord& app, ULONG* state);
// Clears the flags and the token's login.
ULONG clear_secure_state(ApplicationRecord& app);

}  // namespace vorel
