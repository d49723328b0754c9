#include "token/ecc.h"

#include <cstring>
#include <vector>

#include "skf/algorithms.h"
#include "skf/blobs.h"
#include "token/keys.h"
#include "token/rsa.h"
#include "token/session_keys.h"

namespace vorel {

UniquePtr<VOREL_PUBLICKEY> GetECCPublicKey(VOREL_DEVICE* device, const ECCPUBLICKEYBLOB& blob) {
  LibraryBytes der;
  int rc = VorelPKICryptoEncodeECCPubKey(VOREL_CURVE_SM2, blob.XCoordinate + 32, 32, blob.YCoordinate + 32, 32,
                                         &der.bytes, &der.len);
  if (rc != VOREL_OK) {
    VLOG_ERROR("GetECCPublicKey", "VorelPKICryptoEncodeECCPubKey fail, error : %d", rc);
    return nullptr;
  }
  VOREL_PUBLICKEY* pub = nullptr;
  rc = VorelPKICryptoImportPublicKey(device, der.bytes, der.len, &pub);
  if (rc != VOREL_OK) {
    VLOG_ERROR("GetECCPublicKey", "VorelPKICryptoImportPublicKey fail, error : %d", rc);
    return nullptr;
  }
  return UniquePtr<VOREL_PUBLICKEY>(pub);
}

ULONG ExportECCPublicKey(const ContainerRecord* container, bool sign, ECCPUBLICKEYBLOB* blob) {
  const char* who = "ExportECCPublicKey";
  if (!container) return SAR_INVALIDHANDLEERR;
  VOREL_KEYPAIR* pair = sign ? container->signKeypair.get() : container->encKeypair.get();
  if (!pair) return SAR_KEYNOTFOUNTERR;
  LibraryBytes der;
  if (!public_key_of(who, pair, der)) return SAR_FAIL;
  int curve = 0;
  unsigned char *x = nullptr, *y = nullptr;
  std::size_t xLen = 0, yLen = 0;
  int rc = VorelPKICryptoDecodeECCPubKey(der.bytes, der.len, &curve, &x, &xLen, &y, &yLen);
  UniquePtr<unsigned char> xOwner(x), yOwner(y);
  if (rc != VOREL_OK) {
    VLOG_ERROR(who, "VorelPKICryptoDecodeECCPubKey fail, error : %d", rc);
    return SAR_FAIL;
  }
  return ecc_point_to_blob(x, xLen, y, yLen, *blob) ? SAR_OK : SAR_FAIL;
}

UniquePtr<VOREL_KEYPAIR> ToSM2Keyapir(const BYTE* privateKey, ULONG len) {
  LibraryBytes der;
  int rc =
      VorelPKICryptoEncodeECCKeyPair(VOREL_CURVE_SM2, nullptr, 0, nullptr, 0, privateKey, len, &der.bytes, &der.len);
  // Whatever the encoding gave, no key pair is made from it: keys of callers are not used here.
  VLOG_ERROR("ToSM2Keyapir", "VorelPKICryptoEncodeECCKeyPair fail, error : %d", rc);
  return nullptr;
}

ULONG export_public_key(Ctx ctx, const ContainerRecord& container, bool sign, BYTE* out, ULONG* outLen) {
  union {
    RSAPUBLICKEYBLOB rsa;
    ECCPUBLICKEYBLOB ecc;
  } blob;
  bool rsa = container.algorithm == VOREL_ALG_RSA;
  ULONG rc = rsa ? ExportRSAPublicKey(&container, sign, &blob.rsa) : ExportECCPublicKey(&container, sign, &blob.ecc);
  if (rc != SAR_OK) return rc;
  ULONG size = rsa ? sizeof blob.rsa : sizeof blob.ecc;
  ULONG room = *outLen;
  *outLen = size;
  if (room < size) return SAR_BUFFER_TOO_SMALL;
  std::memcpy(out, &blob, size);
  VLOG_DEBUG(ctx.name(), "*pulBlobLen: %d", static_cast<int>(size));
  return SAR_OK;
}

ULONG ecc_sign(Ctx ctx, const ContainerRecord& container, const BYTE* data, ULONG len, ECCSIGNATUREBLOB* sig) {
  VOREL_KEYPAIR* pair = keypair_of(ctx, container, true);
  if (!pair) return SAR_KEYNOTFOUNTERR;
  if (len != 32) {
    VLOG_ERROR(ctx.name(), "ulDataLen != 32");
    return SAR_INDATALENERR;
  }
  LibraryBytes der;
  int rc = VorelPKICryptoSignHash(pair, VOREL_MECH_SM2_SIGN, nullptr, data, 32, &der.bytes, &der.len);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoSignHash", rc);
  unsigned char *r = nullptr, *s = nullptr;
  std::size_t rLen = 0, sLen = 0;
  rc = VorelPKICryptoDecodeECCSignature(der.bytes, der.len, &r, &rLen, &s, &sLen);
  UniquePtr<unsigned char> rOwner(r), sOwner(s);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoDecodeECCSignature", rc);
  return ecc_signature_to_blob(r, rLen, s, sLen, *sig) ? SAR_OK : SAR_FAIL;
}

ULONG ecc_verify(Ctx ctx, const ECCPUBLICKEYBLOB& blob, const BYTE* data, ULONG len, const ECCSIGNATUREBLOB& sig) {
  UniquePtr<VOREL_PUBLICKEY> pub = GetECCPublicKey(pseudo_device(), blob);
  if (!pub) return SAR_FAIL;
  LibraryBytes der;
  int rc = VorelPKICryptoEncodeECCSignature(sig.r + 32, 32, sig.s + 32, 32, &der.bytes, &der.len);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoEncodeECCSignature", rc);
  // Any length goes to the library, which answers for a value that is not 32 bytes.
  rc = VorelPKICryptoVerifyHash(pub.get(), VOREL_MECH_SM2_SIGN, nullptr, data, len, der.bytes, der.len);
  if (rc != VOREL_OK) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoVerifyHash fail, error : %d", rc);
    return SAR_FAIL;
  }
  return SAR_OK;
}

ULONG ecc_encrypt(Ctx ctx, const ECCPUBLICKEYBLOB& blob, const BYTE* in, ULONG len, ECCCIPHERBLOB* out) {
  UniquePtr<VOREL_PUBLICKEY> pub = GetECCPublicKey(pseudo_device(), blob);
  if (!pub) return SAR_FAIL;
  LibraryBytes ct;
  int rc = VorelPKICryptoPublicKeyEncrypt(pub.get(), VOREL_MECH_SM2_ENCRYPT, nullptr, in, len, &ct.bytes, &ct.len);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoPublicKeyEncrypt", rc);
  return cipher_text_to_blob(ct.bytes, ct.len, out) ? SAR_OK : SAR_FAIL;
}

ULONG ecc_decrypt(Ctx ctx, const ContainerRecord& container, bool sign, const ECCCIPHERBLOB& in, BYTE* out,
                  ULONG* outLen) {
  VOREL_KEYPAIR* pair = keypair_of(ctx, container, sign);
  if (!pair) return SAR_KEYNOTFOUNTERR;
  std::vector<uint8_t> text;
  if (!ConvertCipherText(in, text, kMaxEccDataLen)) {
    VLOG_ERROR(ctx.name(), "Could not convert pCipherText");
    return SAR_FAIL;
  }
  LibraryBytes plain;
  int rc = VorelPKICryptoPrivateKeyDecrypt(pair, VOREL_MECH_SM2_ENCRYPT, nullptr, text.data(), text.size(),
                                           &plain.bytes, &plain.len);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoPrivateKeyDecrypt", rc);
  // The sender chooses the plaintext's length: a buffer too small for it gets nothing but the size.
  return put_bytes(plain.bytes, plain.len, out, outLen);
}

ULONG ecc_export_session_key(Ctx ctx, const ContainerRecord& container, ULONG algId, const ECCPUBLICKEYBLOB& blob,
                             ECCCIPHERBLOB* out, HANDLE* key) {
  if (!out || !key) {
    VLOG_ERROR(ctx.name(), "pData and phSessionKey must not be null");
    return SAR_INVALIDPARAMERR;
  }
  uint8_t random[32];
  int rc = VorelPKICryptoGenerateRandom(pseudo_device(), sizeof random, random);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoGenerateRandom", rc);
  ULONG result = SAR_FAIL;
  UniquePtr<VOREL_PUBLICKEY> pub = GetECCPublicKey(pseudo_device(), blob);
  LibraryBytes ct;
  if (pub) {
    std::size_t keyLen = session_key_length(algId);
    rc = VorelPKICryptoPublicKeyEncrypt(pub.get(), VOREL_MECH_SM2_ENCRYPT, nullptr, random, keyLen, &ct.bytes, &ct.len);
    result = rc == VOREL_OK ? SAR_OK : ctx.crypto_failed("VorelPKICryptoPublicKeyEncrypt", rc);
  }
  if (result == SAR_OK && !cipher_text_to_blob(ct.bytes, ct.len, out)) result = SAR_FAIL;
  // The key handle is made last, so that a failure leaves none behind.
  if (result == SAR_OK) {
    result = GenSymKey(ctx, container.cryptoDevice, static_cast<int32_t>(container.type), algId, random, key);
    if (result != SAR_OK) VLOG_ERROR(ctx.name(), "GenSymKey Fail");
  }
  vorel_cleanse(random, sizeof random);
  return result;
}

ULONG ext_ecc_private(Ctx ctx, const ECCPRIVATEKEYBLOB& blob) {
  if (blob.BitLen != 256) {
    VLOG_ERROR(ctx.name(), "pECCPriKeyBlob->BitLen != 256");
    return SAR_INVALIDPARAMERR;
  }
  // No key pair is made from a caller's private key: the operation is refused.
  ToSM2Keyapir(blob.PrivateKey + 32, 32);
  VLOG_ERROR(ctx.name(), "%s fail, error : 0x%08x", ctx.name(), SAR_FAIL);
  return SAR_FAIL;
}

void log_cipher_blob(const ECCCIPHERBLOB& blob) {
  ULONG cipherLen = blob.CipherLen <= kMaxEccDataLen ? blob.CipherLen : 0;
  _log("(unsigned char*)pCipherText", &blob, static_cast<long>(kEccCipherOffset + cipherLen), true);
}

}  // namespace vorel
