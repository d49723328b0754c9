// Private-key decryption on the vendor route: each vendor family offers it under a name and
// signature of its own, chosen by the container's device type.
#pragma once

#include "core/context.h"
#include "core/records.h"
#include "vendor/skf_dll.h"

namespace vorel {

// Decrypts an SM2 cipher blob with the container's signing (sign) or encryption key pair through
// the family's function; SAR_NOTSUPPORTYETERR for a type of no family or a function the module
// lacks, else the vendor's code.
ULONG SKF_ECCDecrypt_CallBack(Ctx ctx, const SkfDll& dll, const ContainerRecord& container, BOOL sign,
                              PECCCIPHERBLOB cipher, BYTE* out, ULONG* outLen);
// The same for RSA.
ULONG SKF_RSADecrypt_CallBack(Ctx ctx, const SkfDll& dll, const ContainerRecord& container, BOOL sign, BYTE* in,
                              ULONG inLen, BYTE* out, ULONG* outLen);

}  // namespace vorel
