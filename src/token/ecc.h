// SM2 on the crypto-library route: container signatures and decryption, verification and
// encryption with the caller's keys on the pseudo device, session-key export, public-key export.
// Each function answers an SKF code and logs the cause of a failure.
#pragma once

#include "token/common.h"

namespace vorel {

// A public key on device from the low 32 bytes of the blob's coordinate fields; null, logged.
UniquePtr<VOREL_PUBLICKEY> GetECCPublicKey(VOREL_DEVICE* device, const ECCPUBLICKEYBLOB& blob);
// The blob of one of the container's key pairs (sign: the signing one).
ULONG ExportECCPublicKey(const ContainerRecord* container, bool sign, ECCPUBLICKEYBLOB* blob);
// A key pair from 32 private-key bytes: it never yields one (logged), so that signing and
// decrypting with a caller's private key are not offered.
UniquePtr<VOREL_KEYPAIR> ToSM2Keyapir(const BYTE* privateKey, ULONG len);

// SKF_ExportPublicKey: the RSA (268 bytes) or SM2 (132 bytes) blob, its size reported first.
ULONG export_public_key(Ctx ctx, const ContainerRecord& container, bool sign, BYTE* out, ULONG* outLen);
// The SM2 signature of 32 bytes (e = SM3(Z || M)) with the container's signing key pair.
ULONG ecc_sign(Ctx ctx, const ContainerRecord& container, const BYTE* data, ULONG len, ECCSIGNATUREBLOB* sig);
ULONG ecc_verify(Ctx ctx, const ECCPUBLICKEYBLOB& blob, const BYTE* data, ULONG len, const ECCSIGNATUREBLOB& sig);
// Encrypts for the blob's key into the caller's ECCCIPHERBLOB, which must hold len cipher bytes.
ULONG ecc_encrypt(Ctx ctx, const ECCPUBLICKEYBLOB& blob, const BYTE* in, ULONG len, ECCCIPHERBLOB* out);
// Decrypts with the container's key pair into out, which must hold CipherLen bytes.
ULONG ecc_decrypt(Ctx ctx, const ContainerRecord& container, bool sign, const ECCCIPHERBLOB& in, BYTE* out,
                  ULONG* outLen);
// A new session key wrapped for the blob's key into out; its handle under the container.
ULONG ecc_export_session_key(Ctx ctx, const ContainerRecord& container, ULONG algId, const ECCPUBLICKEYBLOB& blob,
                             ECCCIPHERBLOB* out, HANDLE* key);
// SKF_ExtECCSign and SKF_ExtECCDecrypt: a private-key blob of 256 bits, for which no key pair
// is made (SAR_FAIL).
ULONG ext_ecc_private(Ctx ctx, const ECCPRIVATEKEYBLOB& blob);
// The cipher blob at DEBUG: its fixed part and its CipherLen bytes (at most kMaxEccDataLen).
void log_cipher_blob(const ECCCIPHERBLOB& blob);

}  // namespace vorel
