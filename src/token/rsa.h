// RSA on the crypto-library route: container signatures and decryption, verification and raw
// operations with the caller's keys on the pseudo device, session-key export, software keys.
// Each function answers an SKF code and logs the cause of a failure.
#pragma once

#include "token/common.h"

namespace vorel {

// The blob of one of the container's key pairs (sign: the signing one).
ULONG ExportRSAPublicKey(const ContainerRecord* container, bool sign, RSAPUBLICKEYBLOB* blob);
// A public key on device from a blob of 1024 or 2048 bits, with the exponent 65537 whatever the
// blob says; null, logged, otherwise.
UniquePtr<VOREL_PUBLICKEY> GetRSAPublicKey(VOREL_DEVICE* device, const RSAPUBLICKEYBLOB& blob);

ULONG gen_ext_rsa_key(Ctx ctx, ULONG bits, RSAPRIVATEKEYBLOB* blob);
// PKCS#1 v1.5 over the data as given (at most k - 11 bytes), with the size contract.
ULONG rsa_sign(Ctx ctx, const ContainerRecord& container, const BYTE* data, ULONG len, BYTE* sig, ULONG* sigLen);
// The raw public operation on the signature, then 00 01 at the front and the data at the end.
ULONG rsa_verify(Ctx ctx, const RSAPUBLICKEYBLOB& blob, const BYTE* data, ULONG len, const BYTE* sig, ULONG sigLen);
// PKCS#1 v1.5 decryption with the container's encryption key pair, whichever pair the caller
// names: on a token only that pair decrypts. The input is exactly the modulus length.
ULONG rsa_decrypt(Ctx ctx, const ContainerRecord& container, const BYTE* in, ULONG inLen, BYTE* out, ULONG* outLen);
// A new session key wrapped for the blob's key; its handle under the container.
ULONG rsa_export_session_key(Ctx ctx, const ContainerRecord& container, ULONG algId, const RSAPUBLICKEYBLOB& blob,
                             BYTE* out, ULONG* outLen, HANDLE* key);
ULONG rsa_public_operation(Ctx ctx, const RSAPUBLICKEYBLOB& blob, const BYTE* in, ULONG inLen, BYTE* out,
                           ULONG* outLen);
ULONG rsa_private_operation(Ctx ctx, const RSAPRIVATEKEYBLOB& blob, const BYTE* in, ULONG inLen, BYTE* out,
                            ULONG* outLen);

}  // namespace vorel
