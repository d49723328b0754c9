// PINs and the secure state of an application. The two flags of the application record say which
// PIN was verified through it; the token's own login is what private-key operations rely on.
// Each function routes by the application's type and answers an SKF code.
#pragma once

#include "core/frame.h"

namespace vorel {

ULONG verify_pin(const ExportCall& call, ApplicationRecord& app, ULONG pinType, LPSTR pin, ULONG* retries);
ULONG change_pin(const ExportCall& call, ApplicationRecord& app, ULONG pinType, LPSTR oldPin, LPSTR newPin,
                 ULONG* retries);
ULONG unblock_pin(const ExportCall& call, ApplicationRecord& app, LPSTR adminPin, LPSTR newUserPin, ULONG* retries);
ULONG pin_info(const ExportCall& call, ApplicationRecord& app, ULONG pinType, ULONG* maxRetries, ULONG* remaining,
               BOOL* defaultPin);
ULONG secure_state(const ExportCall& call, ApplicationRecord& app, ULONG* state);
ULONG clear_secure_state(const ExportCall& call, ApplicationRecord& app);

}  // namespace vorel
