// Private-key decryption on the vendor route: each vendor family offers it under a name and
// signature of its own. A device type belongs to the family its configuration entry names
// ("decryptFamily"), else to the one its number has always stood for.
#pragma once

#include "core/records.h"
#include "vendor/call.h"

namespace vorel {

// Decrypts an SM2 cipher blob with the container's signing (sign) or encryption key pair through
// its family's function; SAR_NOTSUPPORTYETERR for a type of no family or a function the module
// lacks ("<FAMILY>_<function> is not support"), else the vendor's code.
ULONG family_ecc_decrypt(const VendorCall& v, const ContainerRecord& container, BOOL sign, PECCCIPHERBLOB cipher,
                         BYTE* out, ULONG* outLen);
// The same for RSA.
ULONG family_rsa_decrypt(const VendorCall& v, const ContainerRecord& container, BOOL sign, BYTE* in, ULONG inLen,
                         BYTE* out, ULONG* outLen);

}  // namespace vorel
