// The two SKF PIN types.
#pragma once

#include "skf.h"

namespace vorel {

inline bool pin_type_valid(ULONG pinType) { return pinType == ADMIN_TYPE || pinType == USER_TYPE; }

}  // namespace vorel
