// Certificates of a container's key pairs, kept by the crypto library with the key pair itself.
#pragma once

#include "token/common.h"

namespace vorel {

// Stores the DER certificate on the signing (sign true) or encryption key pair, provided it
// carries that key pair's public key; nothing changes otherwise.
ULONG import_certificate(Ctx ctx, const ContainerRecord& container, bool sign, const BYTE* der, ULONG len);
// The DER certificate of that key pair, with the size contract; read from the key pair, so that
// every handle of the container sees what any of them imported.
ULONG export_certificate(Ctx ctx, const ContainerRecord& container, bool sign, BYTE* out, ULONG* len);

}  // namespace vorel
