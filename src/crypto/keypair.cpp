// Key pairs, public keys, signatures, public-key encryption and the SM2 Z value.
#include <cstring>
#include <memory>
#include <new>

#include "crypto/internal.h"
#include "crypto/objects.h"
#include "vorel/vorel_crypto.h"

namespace vorel::crypto {

// GM/T 0003.5 recommended curve.
const unsigned char kSm2A[32] = {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00,
                                 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFC};
const unsigned char kSm2B[32] = {0x28, 0xE9, 0xFA, 0x9E, 0x9D, 0x9F, 0x5E, 0x34, 0x4D, 0x5A, 0x9E,
                                 0x4B, 0xCF, 0x65, 0x09, 0xA7, 0xF3, 0x97, 0x89, 0xF5, 0x15, 0xAB,
                                 0x8F, 0x92, 0xDD, 0xBC, 0xBD, 0x41, 0x4D, 0x94, 0x0E, 0x93};
const unsigned char kSm2Gx[32] = {0x32, 0xC4, 0xAE, 0x2C, 0x1F, 0x19, 0x81, 0x19, 0x5F, 0x99, 0x04,
                                  0x46, 0x6A, 0x39, 0xC9, 0x94, 0x8F, 0xE3, 0x0B, 0xBF, 0xF2, 0x66,
                                  0x0B, 0xE1, 0x71, 0x5A, 0x45, 0x89, 0x33, 0x4C, 0x74, 0xC7};
const unsigned char kSm2Gy[32] = {0xBC, 0x37, 0x36, 0xA2, 0xF4, 0xF6, 0x77, 0x9C, 0x59, 0xBD, 0xCE,
                                  0xE3, 0x6B, 0x69, 0x21, 0x53, 0xD0, 0xA9, 0x87, 0x7C, 0xC6, 0x2A,
                                  0x47, 0x40, 0x02, 0xDF, 0x32, 0xE5, 0x21, 0x39, 0xF0, 0xA0};
const unsigned char kSm2N[32] = {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x72, 0x03, 0xDF, 0x6B, 0x21, 0xC6,
                                 0x05, 0x2B, 0x53, 0xBB, 0xF4, 0x09, 0x39, 0xD5, 0x41, 0x23};

namespace {

const unsigned char kDefaultId[] = "1234567812345678";

struct KeyFree {
  void operator()(backend::Key* k) const { backend::key_free(k); }
};
using KeyPtr = std::unique_ptr<backend::Key, KeyFree>;

int bit_length(const SecureBytes& n) {
  if (n.empty()) return 0;
  int bits = static_cast<int>(n.size()) * 8;
  for (unsigned char top = n[0]; !(top & 0x80); top = static_cast<unsigned char>(top << 1)) --bits;
  return bits;
}

// Big-endian a < b for equal lengths.
bool less_than(const unsigned char* a, const unsigned char* b, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i)
    if (a[i] != b[i]) return a[i] < b[i];
  return false;
}

// SM2 private values run from 1 to n - 2.
bool sm2_private_in_range(const unsigned char* d) {
  unsigned char nMinus1[32];
  std::memcpy(nMinus1, kSm2N, 32);
  nMinus1[31] = static_cast<unsigned char>(nMinus1[31] - 1);  // n ends in 0x23: no borrow
  bool zero = true;
  for (int i = 0; i < 32; ++i) zero = zero && d[i] == 0;
  return !zero && less_than(d, nMinus1, 32);
}

// The modulus length in bytes, as the key itself has it: every RSA buffer is sized from this.
std::size_t rsa_size(const backend::Key* key) { return (backend::rsa_bits(key) + 7) / 8; }

// PKCS#1 v1.5 input of type 1 or 2: 1 to k - 11 bytes.
bool pkcs1_input_ok(std::size_t k, std::size_t len) { return len > 0 && len + 11 <= k; }

// The k-byte block an RSA operation runs on. PKCS#1: encryption takes 1 to k - 11 bytes,
// decryption exactly k. Raw: at most k bytes, right-aligned into k, and below the modulus.
int rsa_input(const backend::Key* key, bool pkcs1, bool encrypt, const unsigned char* in, std::size_t inLen,
              SecureBytes& block) {
  std::size_t k = rsa_size(key);
  if (pkcs1) {
    if (encrypt ? !pkcs1_input_ok(k, inLen) : inLen != k) return VOREL_ERR_DATA_LEN;
    block.assign(in, in + inLen);
    return VOREL_OK;
  }
  block.assign(k, 0);
  backend::RsaNumbers numbers;
  if (!right_align(in, inLen, block.data(), k)) return VOREL_ERR_DATA_LEN;
  if (!backend::rsa_export(key, numbers, false) || numbers.n.size() != k) return VOREL_ERR_GENERAL;
  if (!less_than(block.data(), numbers.n.data(), k)) return VOREL_ERR_DATA_LEN;
  return VOREL_OK;
}

int sm2_z(const backend::Key* key, int hashAlg, const unsigned char* id, std::size_t idBits, unsigned char* z) {
  if (hashAlg != VOREL_HASH_SM3) return VOREL_ERR_NOT_SUPPORTED;
  if (idBits % 8 != 0 || idBits >= 65536 || (!id && idBits > 0)) return VOREL_ERR_PARAM;
  unsigned char q[65];
  if (!backend::sm2_export(key, q, nullptr)) return VOREL_ERR_GENERAL;
  void* h = backend::hash_new(VOREL_HASH_SM3);
  if (!h) return VOREL_ERR_GENERAL;
  unsigned char entl[2] = {static_cast<unsigned char>(idBits >> 8), static_cast<unsigned char>(idBits)};
  bool ok = backend::hash_update(h, entl, 2) && (idBits == 0 || backend::hash_update(h, id, idBits / 8)) &&
            backend::hash_update(h, kSm2A, 32) && backend::hash_update(h, kSm2B, 32) &&
            backend::hash_update(h, kSm2Gx, 32) && backend::hash_update(h, kSm2Gy, 32) &&
            backend::hash_update(h, q + 1, 64) && backend::hash_final(h, z);
  backend::hash_free(h);
  return ok ? VOREL_OK : VOREL_ERR_GENERAL;
}

// e = SM3(Z || M) with the default identity.
int sm2_digest(const backend::Key* key, const unsigned char* m, std::size_t len, unsigned char* e) {
  unsigned char z[32];
  int rc = sm2_z(key, VOREL_HASH_SM3, kDefaultId, 16 * 8, z);
  if (rc != VOREL_OK) return rc;
  void* h = backend::hash_new(VOREL_HASH_SM3);
  if (!h) return VOREL_ERR_GENERAL;
  bool ok =
      backend::hash_update(h, z, 32) && (len == 0 || backend::hash_update(h, m, len)) && backend::hash_final(h, e);
  backend::hash_free(h);
  return ok ? VOREL_OK : VOREL_ERR_GENERAL;
}

bool sm2_hash_param(const void* param) { return !param || *static_cast<const int*>(param) == VOREL_HASH_SM3; }

VOREL_PUBLICKEY* new_public(int alg, backend::Key* key) {
  auto* pub = new (std::nothrow) vorel_publickey_st;
  if (!pub) {
    backend::key_free(key);
    return nullptr;
  }
  pub->alg = alg;
  pub->bits = key_bits(key, alg);
  pub->key = key;
  return pub;
}

bool valid_type(int type) { return type == VOREL_KEYPAIR_SIGN || type == VOREL_KEYPAIR_ENCRYPT; }

// A new key pair: kept on the device when it is a token.
int new_keypair(VOREL_DEVICE* device, int alg, int type, backend::Key* key, VOREL_KEYPAIR** keypair) {
  int rc = device->token ? tokens::store_keypair(device, key, alg, type, keypair)
                         : keypair_object(device, alg, type, key, keypair);
  return rc == VOREL_OK ? ok() : fail(rc);
}

// The private half of a key pair for one operation.
struct PrivateHalf {
  std::shared_ptr<backend::Key> held;  // token keys: kept alive while in use
  const backend::Key* key = nullptr;
  int rc = VOREL_OK;
  explicit PrivateHalf(VOREL_KEYPAIR* kp) {
    if (!kp->device->token) {
      key = kp->key;
      return;
    }
    held = tokens::private_key(kp, &rc);
    key = held.get();
    // The private half kept from a login writes as many bytes as its own modulus: a token file
    // rewritten since must not have given the pair another size.
    if (key && kp->alg == VOREL_ALG_RSA && rsa_size(key) != rsa_size(kp->key)) {
      key = nullptr;
      rc = VOREL_ERR_TOKEN_DAMAGED;
    }
  }
};

}  // namespace

int key_bits(const backend::Key* key, int alg) {
  return alg == VOREL_ALG_SM2 ? 256 : static_cast<int>(backend::rsa_bits(key));
}

backend::Key* public_copy(const backend::Key* key, int alg) {
  if (alg == VOREL_ALG_SM2) {
    unsigned char q[65];
    return backend::sm2_export(key, q, nullptr) ? backend::sm2_import(q, nullptr) : nullptr;
  }
  backend::RsaNumbers k;
  return backend::rsa_export(key, k, false) ? backend::rsa_import(k, false) : nullptr;
}

int keypair_object(VOREL_DEVICE* device, int alg, int type, backend::Key* key, VOREL_KEYPAIR** keypair) {
  auto* kp = new (std::nothrow) vorel_keypair_st;
  if (!kp) {
    backend::key_free(key);
    return VOREL_ERR_MEMORY;
  }
  VorelPKICryptoDupDevice(device, &kp->device);
  kp->alg = alg;
  kp->bits = key_bits(key, alg);
  kp->type = type;
  kp->key = key;
  *keypair = kp;
  return VOREL_OK;
}

bool encode_public(const backend::Key* key, int alg, SecureBytes& spki) {
  if (alg == VOREL_ALG_SM2) {
    unsigned char q[65];
    if (!backend::sm2_export(key, q, nullptr)) return false;
    encode_sm2_public(q, spki);
    return true;
  }
  backend::RsaNumbers k;
  if (!backend::rsa_export(key, k, false)) return false;
  encode_rsa_public(k.n, k.e, spki);
  return true;
}

bool encode_key(const backend::Key* key, int alg, SecureBytes& pkcs8, SecureBytes& spki) {
  if (alg == VOREL_ALG_SM2) {
    unsigned char q[65], d[32];
    if (!backend::sm2_export(key, q, d)) return false;
    encode_sm2_private(d, q, pkcs8);
    encode_sm2_public(q, spki);
    wipe(d, sizeof d);
    return true;
  }
  backend::RsaNumbers k;
  if (!backend::rsa_export(key, k, true)) return false;
  encode_rsa_private(k, pkcs8);
  encode_rsa_public(k.n, k.e, spki);
  return true;
}

int decoded_bits(const DecodedKey& k, bool priv, int* bits) {
  if (k.alg == VOREL_ALG_SM2) {
    if (priv ? !k.hasD || !sm2_private_in_range(k.d) : !k.hasQ) return VOREL_ERR_BAD_ENCODING;
    *bits = 256;
    return VOREL_OK;
  }
  int n = bit_length(k.rsa.n);
  if (n < 1024 || n > 4096) return VOREL_ERR_NOT_SUPPORTED;
  // An even or tiny exponent is no RSA key.
  if (k.rsa.e.empty() || k.rsa.e.size() > 8 || !(k.rsa.e.back() & 1) || (k.rsa.e.size() == 1 && k.rsa.e[0] < 3))
    return VOREL_ERR_BAD_ENCODING;
  *bits = n;
  return VOREL_OK;
}

int public_key_size(const unsigned char* der, std::size_t len, int* alg, int* bits) {
  DecodedKey decoded;
  int rc = decode_public(der, len, decoded);
  if (rc == VOREL_OK) rc = decoded_bits(decoded, false, bits);
  *alg = decoded.alg;
  return rc;
}

int key_from_decoded(const DecodedKey& k, bool priv, backend::Key** key) {
  int bits = 0;
  int rc = decoded_bits(k, priv, &bits);
  if (rc != VOREL_OK) return rc;
  *key = k.alg == VOREL_ALG_SM2 ? backend::sm2_import(k.hasQ ? k.q : nullptr, priv ? k.d : nullptr)
                                : backend::rsa_import(k.rsa, priv);
  return *key ? VOREL_OK : VOREL_ERR_BAD_ENCODING;
}

}  // namespace vorel::crypto

using namespace vorel::crypto;
namespace backend = vorel::backend;

extern "C" {

// ---- key pairs ----

int VorelPKICryptoGenerateKeypair(VOREL_DEVICE* device, int alg, int bits, int param, int type,
                                  VOREL_KEYPAIR** keypair) {
  return guard([&] {
    if (!device || !keypair || !valid_type(type)) return fail(VOREL_ERR_PARAM);
    *keypair = nullptr;
    // No key is made for a token that could not keep it.
    if (device->token && tokens::require_user(device) != VOREL_OK) return fail(VOREL_ERR_NOT_LOGGED_IN);
    backend::Key* key = nullptr;
    if (alg == VOREL_ALG_SM2) {
      if (bits != 256 || (param != 0 && param != VOREL_CURVE_SM2)) return fail(VOREL_ERR_NOT_SUPPORTED);
      key = backend::sm2_generate();
    } else if (alg == VOREL_ALG_RSA) {
      if (bits != 1024 && bits != 2048 && bits != 3072 && bits != 4096) return fail(VOREL_ERR_NOT_SUPPORTED);
      unsigned long e = param == 0 ? 65537ul : static_cast<unsigned long>(param);
      if (param < 0 || e < 3 || !(e & 1)) return fail(VOREL_ERR_PARAM);
      key = backend::rsa_generate(static_cast<unsigned>(bits), e);
    } else {
      return fail(VOREL_ERR_NOT_SUPPORTED);
    }
    if (!key) return fail(VOREL_ERR_GENERAL);
    return new_keypair(device, alg, type, key, keypair);
  });
}

int VorelPKICryptoImportKeypair(VOREL_DEVICE* device, const unsigned char* der, size_t derLen, int type,
                                VOREL_KEYPAIR** keypair) {
  return guard([&] {
    if (!device || !der || !keypair || !valid_type(type)) return fail(VOREL_ERR_PARAM);
    *keypair = nullptr;
    DecodedKey decoded;
    int rc = decode_private(der, derLen, decoded);
    if (rc != VOREL_OK) return fail(rc);
    backend::Key* key = nullptr;
    rc = key_from_decoded(decoded, true, &key);
    if (rc != VOREL_OK) return fail(rc);
    return new_keypair(device, decoded.alg, type, key, keypair);
  });
}

int VorelPKICryptoExportKeypair(VOREL_KEYPAIR* keypair, unsigned char** der, size_t* derLen) {
  return guard([&] {
    if (!keypair || !der || !derLen) return fail(VOREL_ERR_PARAM);
    if (keypair->device->token) return fail(VOREL_ERR_NOT_EXPORTABLE);
    SecureBytes out, spki;
    if (!encode_key(keypair->key, keypair->alg, out, spki)) return fail(VOREL_ERR_GENERAL);
    return hand_out(out.data(), out.size(), der, derLen);
  });
}

int VorelPKICryptoDupKeypair(VOREL_KEYPAIR* keypair, VOREL_KEYPAIR** copy) {
  return guard([&] {
    if (!keypair || !copy) return fail(VOREL_ERR_PARAM);
    keypair->refs.fetch_add(1, std::memory_order_relaxed);
    *copy = keypair;
    return ok();
  });
}

void VorelPKICryptoFreeKeypair(VOREL_KEYPAIR* keypair) {
  return guard([&] {
    if (!keypair || keypair->refs.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    backend::key_free(keypair->key);
    VorelPKICryptoFreeDevice(keypair->device);
    delete keypair;
  });
}

int VorelPKICryptoDeleteKeypair(VOREL_KEYPAIR* keypair) {
  return guard([&] {
    if (!keypair) return fail(VOREL_ERR_PARAM);
    // Pseudo-device key pairs live only in their objects: nothing is kept elsewhere.
    if (!keypair->device->token) return ok();
    int rc = tokens::delete_keypair(keypair);
    return rc == VOREL_OK ? ok() : fail(rc);
  });
}

int VorelPKICryptoGetKeypairType(VOREL_KEYPAIR* keypair) {
  return guard([&] {
    if (!keypair) return fail(VOREL_ERR_PARAM), -1;
    ok();
    return keypair->type;
  });
}

int VorelPKICryptoGetKeypairAlgorithm(VOREL_KEYPAIR* keypair) {
  return guard([&] {
    if (!keypair) return fail(VOREL_ERR_PARAM), -1;
    ok();
    return keypair->alg;
  });
}

int VorelPKICryptoGetKeypairBits(VOREL_KEYPAIR* keypair) {
  return guard([&] {
    if (!keypair) return fail(VOREL_ERR_PARAM), -1;
    ok();
    return keypair->bits;
  });
}

int VorelPKICryptoGetKeypairLabel(VOREL_KEYPAIR* keypair, char** label) {
  return guard([&] {
    if (!keypair || !label) return fail(VOREL_ERR_PARAM);
    std::lock_guard<std::mutex> hold(keypair->lock);
    return hand_out_text(keypair->label.c_str(), keypair->label.size(), label);
  });
}

int VorelPKICryptoSetKeypairLabel(VOREL_KEYPAIR* keypair, const char* label) {
  return guard([&] {
    if (!keypair || !label || std::strlen(label) > VOREL_KEYPAIR_LABEL_MAX_LEN) return fail(VOREL_ERR_PARAM);
    if (keypair->device->token) {
      int rc = tokens::set_label(keypair, label);
      if (rc != VOREL_OK) return fail(rc);
    }
    std::lock_guard<std::mutex> hold(keypair->lock);
    keypair->label = label;
    return ok();
  });
}

// ---- public keys ----

VOREL_PUBLICKEY* VorelPKICryptoGetPublicKeyFromKeypair(VOREL_KEYPAIR* keypair) {
  return guard([&]() -> VOREL_PUBLICKEY* {
    if (!keypair) return fail(VOREL_ERR_PARAM), nullptr;
    backend::Key* key = public_copy(keypair->key, keypair->alg);
    if (!key) return fail(VOREL_ERR_GENERAL), nullptr;
    VOREL_PUBLICKEY* pub = new_public(keypair->alg, key);
    if (!pub) return fail(VOREL_ERR_MEMORY), nullptr;
    ok();
    return pub;
  });
}

int VorelPKICryptoImportPublicKey(VOREL_DEVICE* device, const unsigned char* der, size_t derLen,
                                  VOREL_PUBLICKEY** publicKey) {
  return guard([&] {
    if (!device || !der || !publicKey) return fail(VOREL_ERR_PARAM);
    *publicKey = nullptr;
    DecodedKey decoded;
    int rc = decode_public(der, derLen, decoded);
    if (rc != VOREL_OK) return fail(rc);
    backend::Key* key = nullptr;
    rc = key_from_decoded(decoded, false, &key);
    if (rc != VOREL_OK) return fail(rc);
    *publicKey = new_public(decoded.alg, key);
    return *publicKey ? ok() : fail(VOREL_ERR_MEMORY);
  });
}

int VorelPKICryptoExportPublicKey(VOREL_PUBLICKEY* publicKey, unsigned char** der, size_t* derLen) {
  return guard([&] {
    if (!publicKey || !der || !derLen) return fail(VOREL_ERR_PARAM);
    SecureBytes out;
    if (publicKey->alg == VOREL_ALG_SM2) {
      unsigned char q[65];
      if (!backend::sm2_export(publicKey->key, q, nullptr)) return fail(VOREL_ERR_GENERAL);
      encode_sm2_public(q, out);
    } else {
      backend::RsaNumbers k;
      if (!backend::rsa_export(publicKey->key, k, false)) return fail(VOREL_ERR_GENERAL);
      encode_rsa_public(k.n, k.e, out);
    }
    return hand_out(out.data(), out.size(), der, derLen);
  });
}

void VorelPKICryptoFreePublicKey(VOREL_PUBLICKEY* publicKey) {
  return guard([&] {
    if (!publicKey) return;
    backend::key_free(publicKey->key);
    delete publicKey;
  });
}

int VorelPKICryptoPublicKeyEqual(VOREL_PUBLICKEY* a, VOREL_PUBLICKEY* b) {
  return guard([&] {
    if (!a || !b) return fail(VOREL_ERR_PARAM);
    ok();
    if (a->alg != b->alg) return 0;
    if (a->alg == VOREL_ALG_SM2) {
      unsigned char qa[65], qb[65];
      if (!backend::sm2_export(a->key, qa, nullptr) || !backend::sm2_export(b->key, qb, nullptr))
        return fail(VOREL_ERR_GENERAL);
      return std::memcmp(qa, qb, sizeof qa) == 0 ? 1 : 0;
    }
    backend::RsaNumbers ka, kb;
    if (!backend::rsa_export(a->key, ka, false) || !backend::rsa_export(b->key, kb, false))
      return fail(VOREL_ERR_GENERAL);
    return ka.n == kb.n && ka.e == kb.e ? 1 : 0;
  });
}

// ---- signatures and encryption ----

int VorelPKICryptoSignHash(VOREL_KEYPAIR* keypair, int mechanism, const void* /*param*/, const unsigned char* data,
                           size_t dataLen, unsigned char** signature, size_t* signatureLen) {
  return guard([&] {
    if (!keypair || (!data && dataLen > 0) || !signature || !signatureLen) return fail(VOREL_ERR_PARAM);
    switch (mechanism) {
      case VOREL_MECH_SM2_SIGN:
      case VOREL_MECH_SM2_SM3_SIGN: {
        if (keypair->alg != VOREL_ALG_SM2) return fail(VOREL_ERR_NOT_SUPPORTED);
        unsigned char e[32], r[32], s[32];
        if (mechanism == VOREL_MECH_SM2_SIGN) {
          if (dataLen != 32) return fail(VOREL_ERR_DATA_LEN);
          std::memcpy(e, data, 32);
        } else {
          int rc = sm2_digest(keypair->key, data, dataLen, e);
          if (rc != VOREL_OK) return fail(rc);
        }
        PrivateHalf priv(keypair);
        if (!priv.key) return fail(priv.rc);
        int rc = backend::sm2_sign(priv.key, e, r, s);
        if (rc != VOREL_OK) return fail(rc);
        return VorelPKICryptoEncodeECCSignature(r, 32, s, 32, signature, signatureLen);
      }
      case VOREL_MECH_RSA_PKCS1_SIGN: {
        if (keypair->alg != VOREL_ALG_RSA) return fail(VOREL_ERR_NOT_SUPPORTED);
        std::size_t k = rsa_size(keypair->key);
        if (!pkcs1_input_ok(k, dataLen)) return fail(VOREL_ERR_DATA_LEN);
        PrivateHalf priv(keypair);
        if (!priv.key) return fail(priv.rc);
        SecureBytes out(k);
        int rc = backend::rsa_sign_pkcs1(priv.key, data, dataLen, out.data());
        if (rc != VOREL_OK) return fail(rc);
        return hand_out(out.data(), k, signature, signatureLen);
      }
      default:
        return fail(VOREL_ERR_NOT_SUPPORTED);
    }
  });
}

int VorelPKICryptoVerifyHash(VOREL_PUBLICKEY* publicKey, int mechanism, const void* /*param*/,
                             const unsigned char* data, size_t dataLen, const unsigned char* signature,
                             size_t signatureLen) {
  return guard([&] {
    if (!publicKey || (!data && dataLen > 0) || !signature) return fail(VOREL_ERR_PARAM);
    switch (mechanism) {
      case VOREL_MECH_SM2_SIGN:
      case VOREL_MECH_SM2_SM3_SIGN: {
        if (publicKey->alg != VOREL_ALG_SM2) return fail(VOREL_ERR_NOT_SUPPORTED);
        unsigned char e[32];
        if (mechanism == VOREL_MECH_SM2_SIGN) {
          if (dataLen != 32) return fail(VOREL_ERR_DATA_LEN);
          std::memcpy(e, data, 32);
        } else {
          int rc = sm2_digest(publicKey->key, data, dataLen, e);
          if (rc != VOREL_OK) return fail(rc);
        }
        unsigned char *r = nullptr, *s = nullptr;
        std::size_t rLen = 0, sLen = 0;
        if (VorelPKICryptoDecodeECCSignature(signature, signatureLen, &r, &rLen, &s, &sLen) != VOREL_OK)
          return fail(VOREL_ERR_BAD_SIGNATURE);
        unsigned char rr[32], ss[32];
        right_align(r, rLen, rr, 32);
        right_align(s, sLen, ss, 32);
        VorelPKICryptoFreeMemory(r);
        VorelPKICryptoFreeMemory(s);
        int rc = backend::sm2_verify(publicKey->key, e, rr, ss);
        return rc == VOREL_OK ? ok() : fail(rc);
      }
      case VOREL_MECH_RSA_PKCS1_SIGN: {
        if (publicKey->alg != VOREL_ALG_RSA) return fail(VOREL_ERR_NOT_SUPPORTED);
        std::size_t k = rsa_size(publicKey->key);
        if (!pkcs1_input_ok(k, dataLen)) return fail(VOREL_ERR_DATA_LEN);
        if (signatureLen != k) return fail(VOREL_ERR_BAD_SIGNATURE);
        int rc = backend::rsa_verify_pkcs1(publicKey->key, data, dataLen, signature);
        return rc == VOREL_OK ? ok() : fail(rc);
      }
      default:
        return fail(VOREL_ERR_NOT_SUPPORTED);
    }
  });
}

int VorelPKICryptoPublicKeyEncrypt(VOREL_PUBLICKEY* publicKey, int mechanism, const void* param,
                                   const unsigned char* in, size_t inLen, unsigned char** out, size_t* outLen) {
  return guard([&] {
    if (!publicKey || (!in && inLen > 0) || !out || !outLen) return fail(VOREL_ERR_PARAM);
    switch (mechanism) {
      case VOREL_MECH_SM2_ENCRYPT: {
        if (publicKey->alg != VOREL_ALG_SM2) return fail(VOREL_ERR_NOT_SUPPORTED);
        if (!sm2_hash_param(param)) return fail(VOREL_ERR_NOT_SUPPORTED);
        // An empty message has no key stream to test for zero.
        if (inLen == 0 || inLen > SIZE_MAX - 97) return fail(VOREL_ERR_DATA_LEN);
        SecureBytes ct(inLen + 97);
        int rc = backend::sm2_encrypt(publicKey->key, in, inLen, ct.data());
        if (rc != VOREL_OK) return fail(rc);
        return hand_out(ct.data(), ct.size(), out, outLen);
      }
      case VOREL_MECH_RSA_PKCS1:
      case VOREL_MECH_RSA_RAW: {
        if (publicKey->alg != VOREL_ALG_RSA) return fail(VOREL_ERR_NOT_SUPPORTED);
        SecureBytes block, result(rsa_size(publicKey->key));
        int rc = rsa_input(publicKey->key, mechanism == VOREL_MECH_RSA_PKCS1, true, in, inLen, block);
        if (rc == VOREL_OK)
          rc = backend::rsa_encrypt(publicKey->key, mechanism == VOREL_MECH_RSA_PKCS1, block.data(), block.size(),
                                    result.data());
        if (rc != VOREL_OK) return fail(rc);
        return hand_out(result.data(), result.size(), out, outLen);
      }
      default:
        return fail(VOREL_ERR_NOT_SUPPORTED);
    }
  });
}

int VorelPKICryptoPrivateKeyDecrypt(VOREL_KEYPAIR* keypair, int mechanism, const void* param, const unsigned char* in,
                                    size_t inLen, unsigned char** out, size_t* outLen) {
  return guard([&] {
    if (!keypair || (!in && inLen > 0) || !out || !outLen) return fail(VOREL_ERR_PARAM);
    switch (mechanism) {
      case VOREL_MECH_SM2_ENCRYPT: {
        if (keypair->alg != VOREL_ALG_SM2) return fail(VOREL_ERR_NOT_SUPPORTED);
        if (!sm2_hash_param(param)) return fail(VOREL_ERR_NOT_SUPPORTED);
        if (inLen < 98 || in[0] != 0x04) return fail(VOREL_ERR_DATA_LEN);
        PrivateHalf priv(keypair);
        if (!priv.key) return fail(priv.rc);
        SecureBytes plain(inLen - 97);
        int rc = backend::sm2_decrypt(priv.key, in, inLen, plain.data());
        if (rc != VOREL_OK) return fail(rc);
        return hand_out(plain.data(), plain.size(), out, outLen);
      }
      case VOREL_MECH_RSA_PKCS1:
      case VOREL_MECH_RSA_RAW: {
        if (keypair->alg != VOREL_ALG_RSA) return fail(VOREL_ERR_NOT_SUPPORTED);
        SecureBytes block, result(rsa_size(keypair->key));
        int rc = rsa_input(keypair->key, mechanism == VOREL_MECH_RSA_PKCS1, false, in, inLen, block);
        if (rc != VOREL_OK) return fail(rc);
        PrivateHalf priv(keypair);
        if (!priv.key) return fail(priv.rc);
        std::size_t produced = 0;
        rc = backend::rsa_decrypt(priv.key, mechanism == VOREL_MECH_RSA_PKCS1, block.data(), block.size(),
                                  result.data(), &produced);
        if (rc != VOREL_OK) return fail(rc);
        return hand_out(result.data(), produced, out, outLen);
      }
      default:
        return fail(VOREL_ERR_NOT_SUPPORTED);
    }
  });
}

int VorelPKIComputeSM2Z(VOREL_PUBLICKEY* publicKey, int hashAlg, const VOREL_SM2_ID* id, unsigned char** z,
                        size_t* zLen) {
  return guard([&] {
    if (!publicKey || !id || !z || !zLen) return fail(VOREL_ERR_PARAM);
    if (publicKey->alg != VOREL_ALG_SM2) return fail(VOREL_ERR_NOT_SUPPORTED);
    unsigned char digest[32];
    int rc = sm2_z(publicKey->key, hashAlg, id->data, id->bits, digest);
    if (rc != VOREL_OK) return fail(rc);
    return hand_out(digest, sizeof digest, z, zLen);
  });
}

}  // extern "C"
