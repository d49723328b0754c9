// The one mapping from crypto-library results to SKF return codes.
#pragma once

#include "skf.h"

namespace vorel {

// The SKF code for a crypto-library failure rc (anything but VOREL_OK) met by an export:
// the export's own exception if it has one, else the common answer.
ULONG sar_from_vorel(int rc, const char* exportName);

}  // namespace vorel
