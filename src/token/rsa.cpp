#include "token/rsa.h"

#include <cstring>
#include <vector>

#include "skf/algorithms.h"
#include "skf/blobs.h"
#include "token/keys.h"
#include "token/session_keys.h"

namespace vorel {

namespace {

using Bytes = std::vector<uint8_t>;

// A public key on device from its modulus and exponent; null, logged, on failure.
UniquePtr<VOREL_PUBLICKEY> import_public(const char* who, VOREL_DEVICE* device, const Bytes& n, const Bytes& e) {
  unsigned char* der = nullptr;
  std::size_t derLen = 0;
  int rc = VorelPKICryptoEncodeRSAPubKey(n.data(), n.size(), e.data(), e.size(), &der, &derLen);
  UniquePtr<unsigned char> encoded(der);
  if (rc != VOREL_OK) {
    VLOG_ERROR(who, "VorelPKICryptoEncodeRSAPubKey fail, error : %d", rc);
    return nullptr;
  }
  VOREL_PUBLICKEY* pub = nullptr;
  rc = VorelPKICryptoImportPublicKey(device, der, derLen, &pub);
  if (rc != VOREL_OK) {
    VLOG_ERROR(who, "VorelPKICryptoImportPublicKey fail, error : %d", rc);
    return nullptr;
  }
  return UniquePtr<VOREL_PUBLICKEY>(pub);
}

// The raw public operation (no padding) of a key on the input.
ULONG raw_public(Ctx ctx, VOREL_PUBLICKEY* pub, const BYTE* in, ULONG inLen, LibraryBytes& out) {
  int rc = VorelPKICryptoPublicKeyEncrypt(pub, VOREL_MECH_RSA_RAW, nullptr, in, inLen, &out.bytes, &out.len);
  return rc == VOREL_OK ? SAR_OK : ctx.crypto_failed("VorelPKICryptoPublicKeyEncrypt", rc);
}

// The size in bytes of a key pair's modulus.
bool modulus_bytes(Ctx ctx, VOREL_KEYPAIR* pair, ULONG* k) {
  int bits = VorelPKICryptoGetKeypairBits(pair);
  if (bits <= 0) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoGetKeypairBits fail, error : %d", VorelPKIGetLastError());
    return false;
  }
  *k = static_cast<ULONG>(bits + 7) / 8;
  return true;
}

ULONG hand_out(Ctx ctx, const LibraryBytes& result, BYTE* out, ULONG* outLen) {
  ULONG rc = put_bytes(result.bytes, result.len, out, outLen);
  VLOG_DEBUG(ctx.name(), "*pulOutputLen: %d", static_cast<int>(*outLen));
  return rc;
}

}  // namespace

ULONG ExportRSAPublicKey(const ContainerRecord* container, bool sign, RSAPUBLICKEYBLOB* blob) {
  const char* who = "ExportRSAPublicKey";
  if (!container) return SAR_INVALIDHANDLEERR;
  VOREL_KEYPAIR* pair = sign ? container->signKeypair.get() : container->encKeypair.get();
  if (!pair) return SAR_KEYNOTFOUNTERR;
  LibraryBytes der;
  if (!public_key_of(who, pair, der)) return SAR_FAIL;
  unsigned char *n = nullptr, *e = nullptr;
  std::size_t nLen = 0, eLen = 0;
  int rc = VorelPKICryptoDecodeRSAPubKey(der.bytes, der.len, &n, &nLen, &e, &eLen);
  UniquePtr<unsigned char> modulus(n), exponent(e);
  if (rc != VOREL_OK) {
    VLOG_ERROR(who, "VorelPKICryptoDecodeRSAPubKey fail, error : %d", rc);
    return SAR_FAIL;
  }
  if (!rsa_public_to_blob(Bytes(n, n + nLen), Bytes(e, e + eLen), *blob)) {
    VLOG_ERROR(who, "the key does not fit RSAPUBLICKEYBLOB");
    return SAR_FAIL;
  }
  return SAR_OK;
}

UniquePtr<VOREL_PUBLICKEY> GetRSAPublicKey(VOREL_DEVICE* device, const RSAPUBLICKEYBLOB& blob) {
  Bytes n;
  if (!rsa_bits_accepted(blob.BitLen) || !rsa_blob_modulus(blob, n)) {
    VLOG_ERROR("GetRSAPublicKey", "Error public key bit len");
    return nullptr;
  }
  return import_public("GetRSAPublicKey", device, n, Bytes{0x01, 0x00, 0x01});
}

ULONG gen_ext_rsa_key(Ctx ctx, ULONG bits, RSAPRIVATEKEYBLOB* blob) {
  if (!rsa_bits_accepted(bits)) {
    VLOG_ERROR(ctx.name(), "ulBitsLen error");
    return SAR_INVALIDPARAMERR;
  }
  VOREL_KEYPAIR* raw = nullptr;
  int rc = VorelPKICryptoGenerateKeypair(pseudo_device(), VOREL_ALG_RSA, static_cast<int>(bits), 0, VOREL_KEYPAIR_SIGN,
                                         &raw);
  UniquePtr<VOREL_KEYPAIR> pair(raw);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoGenerateKeypair", rc);
  LibraryBytes der;
  rc = VorelPKICryptoExportKeypair(pair.get(), &der.bytes, &der.len);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoExportKeypair", rc);
  unsigned char* numbers[VOREL_RSA_NUMBERS] = {};
  std::size_t lengths[VOREL_RSA_NUMBERS] = {};
  rc = VorelPKICryptoDecodeRSAKeyPair(der.bytes, der.len, numbers, lengths);
  Bytes values[VOREL_RSA_NUMBERS];
  for (int i = 0; i < VOREL_RSA_NUMBERS; ++i) {
    if (numbers[i]) values[i].assign(numbers[i], numbers[i] + lengths[i]);
    vorel_cleanse(numbers[i], lengths[i]);
    VorelPKICryptoFreeMemory(numbers[i]);
  }
  bool fits = rc == VOREL_OK && rsa_private_to_blob(values, bits, *blob);
  for (Bytes& v : values) vorel_cleanse(v.data(), v.size());
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoDecodeRSAKeyPair", rc);
  if (!fits) return SAR_FAIL;
  _log("(unsigned char*)pBlob", blob, static_cast<long>(sizeof *blob), true);
  return SAR_OK;
}

ULONG rsa_sign(Ctx ctx, const ContainerRecord& container, const BYTE* data, ULONG len, BYTE* sig, ULONG* sigLen) {
  VOREL_KEYPAIR* pair = keypair_of(ctx, container, true);
  if (!pair) return SAR_KEYNOTFOUNTERR;
  ULONG k = 0;
  if (!modulus_bytes(ctx, pair, &k)) return SAR_FAIL;
  if (len > k - 11) {
    VLOG_ERROR(ctx.name(), "ulDataLen too long");
    return SAR_INDATALENERR;
  }
  if (!sig) {
    *sigLen = k;
    return SAR_OK;
  }
  if (*sigLen < k) {
    *sigLen = k;
    return SAR_BUFFER_TOO_SMALL;
  }
  LibraryBytes out;
  int rc = VorelPKICryptoSignHash(pair, VOREL_MECH_RSA_PKCS1_SIGN, nullptr, data, len, &out.bytes, &out.len);
  if (rc != VOREL_OK) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoSignHash fail, error : %d", VorelPKIGetLastError());
    return sar_from_vorel(rc, ctx.name());
  }
  ULONG result = put_bytes(out.bytes, out.len, sig, sigLen);
  VLOG_DEBUG(ctx.name(), "*pulSignLen : %d", static_cast<int>(*sigLen));
  return result;
}

ULONG rsa_verify(Ctx ctx, const RSAPUBLICKEYBLOB& blob, const BYTE* data, ULONG len, const BYTE* sig, ULONG sigLen) {
  Bytes n;
  if (!rsa_blob_modulus(blob, n)) {
    VLOG_ERROR(ctx.name(), "Error public key bit len");
    return SAR_INVALIDPARAMERR;
  }
  Bytes e(blob.PublicExponent, blob.PublicExponent + sizeof blob.PublicExponent);
  UniquePtr<VOREL_PUBLICKEY> pub = import_public(ctx.name(), pseudo_device(), n, e);
  if (!pub) return SAR_FAIL;
  LibraryBytes block;
  ULONG rc = raw_public(ctx, pub.get(), sig, sigLen, block);
  if (rc != SAR_OK) return rc;
  // Only the block type and the data at the end are compared, not the filler before them.
  bool match = block.len >= 2 && block.bytes[0] == 0x00 && block.bytes[1] == 0x01 && len <= block.len &&
               std::memcmp(block.bytes + block.len - len, data, len) == 0;
  if (!match) {
    VLOG_ERROR(ctx.name(), "rsa sign v1_5 verify fail");
    return SAR_FAIL;
  }
  return SAR_OK;
}

ULONG rsa_decrypt(Ctx ctx, const ContainerRecord& container, const BYTE* in, ULONG inLen, BYTE* out, ULONG* outLen) {
  VOREL_KEYPAIR* pair = keypair_of(ctx, container, false);
  if (!pair) return SAR_KEYNOTFOUNTERR;
  ULONG k = 0;
  if (!modulus_bytes(ctx, pair, &k)) return SAR_FAIL;
  if (inLen != k) {
    VLOG_ERROR(ctx.name(), "ulInputLen %u is not the key's %u bytes", static_cast<unsigned>(inLen),
               static_cast<unsigned>(k));
    return SAR_INDATALENERR;
  }
  LibraryBytes plain;
  int rc = VorelPKICryptoPrivateKeyDecrypt(pair, VOREL_MECH_RSA_PKCS1, nullptr, in, inLen, &plain.bytes, &plain.len);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoPrivateKeyDecrypt", rc);
  return put_bytes(plain.bytes, plain.len, out, outLen);
}

ULONG rsa_export_session_key(Ctx ctx, const ContainerRecord& container, ULONG algId, const RSAPUBLICKEYBLOB& blob,
                             BYTE* out, ULONG* outLen, HANDLE* key) {
  UniquePtr<VOREL_PUBLICKEY> pub = GetRSAPublicKey(pseudo_device(), blob);
  if (!pub) return SAR_FAIL;
  uint8_t random[32];
  int rc = VorelPKICryptoGenerateRandom(pseudo_device(), sizeof random, random);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoGenerateRandom", rc);
  LibraryBytes wrapped;
  std::size_t keyLen = session_key_length(algId);
  rc = VorelPKICryptoPublicKeyEncrypt(pub.get(), VOREL_MECH_RSA_PKCS1, nullptr, random, keyLen, &wrapped.bytes,
                                      &wrapped.len);
  ULONG result = rc == VOREL_OK ? put_bytes(wrapped.bytes, wrapped.len, out, outLen)
                                : ctx.crypto_failed("VorelPKICryptoPublicKeyEncrypt", rc);
  VLOG_DEBUG(ctx.name(), "*pulDataLen: %d", static_cast<int>(*outLen));
  // A size query makes no key.
  if (result == SAR_OK && out) {
    result = GenSymKey(ctx, container.cryptoDevice, static_cast<int32_t>(container.type), algId, random, key);
    if (result != SAR_OK) VLOG_ERROR(ctx.name(), "GenSymKey Fail");
  }
  vorel_cleanse(random, sizeof random);
  return result;
}

ULONG rsa_public_operation(Ctx ctx, const RSAPUBLICKEYBLOB& blob, const BYTE* in, ULONG inLen, BYTE* out,
                           ULONG* outLen) {
  Bytes n = strip_number(blob.Modulus, sizeof blob.Modulus);
  Bytes e = strip_number(blob.PublicExponent, sizeof blob.PublicExponent);
  UniquePtr<VOREL_PUBLICKEY> pub = import_public(ctx.name(), pseudo_device(), n, e);
  if (!pub) return SAR_FAIL;
  LibraryBytes result;
  ULONG rc = raw_public(ctx, pub.get(), in, inLen, result);
  return rc == SAR_OK ? hand_out(ctx, result, out, outLen) : rc;
}

ULONG rsa_private_operation(Ctx ctx, const RSAPRIVATEKEYBLOB& blob, const BYTE* in, ULONG inLen, BYTE* out,
                            ULONG* outLen) {
  Bytes numbers[VOREL_RSA_NUMBERS];
  rsa_blob_private_numbers(blob, numbers);
  const unsigned char* values[VOREL_RSA_NUMBERS];
  std::size_t lengths[VOREL_RSA_NUMBERS];
  for (int i = 0; i < VOREL_RSA_NUMBERS; ++i) {
    values[i] = numbers[i].data();
    lengths[i] = numbers[i].size();
  }
  LibraryBytes der;
  int rc = VorelPKICryptoEncodeRSAKeyPair(values, lengths, &der.bytes, &der.len);
  for (Bytes& v : numbers) vorel_cleanse(v.data(), v.size());
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoEncodeRSAKeyPair", rc);
  VOREL_KEYPAIR* raw = nullptr;
  rc = VorelPKICryptoImportKeypair(pseudo_device(), der.bytes, der.len, VOREL_KEYPAIR_ENCRYPT, &raw);
  UniquePtr<VOREL_KEYPAIR> pair(raw);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoImportKeypair", rc);
  LibraryBytes result;
  rc = VorelPKICryptoPrivateKeyDecrypt(pair.get(), VOREL_MECH_RSA_RAW, nullptr, in, inLen, &result.bytes, &result.len);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoPrivateKeyDecrypt", rc);
  return hand_out(ctx, result, out, outLen);
}

}  // namespace vorel
