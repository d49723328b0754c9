// The seam over OpenSSL 3. Everything runs in a library context of our own, so that loading
// the legacy provider (for DES) never changes what the application's OpenSSL does.
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/obj_mac.h>
#include <openssl/param_build.h>
#include <openssl/provider.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>

#include "crypto/backend.h"
#include "crypto/der.h"
#include "vorel/vorel_crypto.h"

namespace vorel::VOREL_BACKEND_NS {

struct Key {
  EVP_PKEY* pkey;
  bool rsa;
  bool priv;
};

namespace {

struct Library {
  OSSL_LIB_CTX* ctx = nullptr;
  OSSL_PROVIDER* providers[2] = {};  // default, legacy
  const EVP_MD* sm3 = nullptr;
  const EVP_MD* sha1 = nullptr;
  const EVP_MD* sha256 = nullptr;
  // [cipher][cbc]
  EVP_CIPHER* ciphers[4][2] = {};
  EVP_CIPHER* gcm = nullptr;
  EVP_KDF* pbkdf2 = nullptr;
  EC_GROUP* sm2 = nullptr;
  EVP_PKEY* sm2Params = nullptr;  // the curve alone: public keys are made from a copy of it
  bool ok = false;
};

EVP_PKEY* sm2_parameters(OSSL_LIB_CTX* ctx) {
  char group[] = "SM2";
  OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME, group, 0),
                         OSSL_PARAM_construct_end()};
  EVP_PKEY_CTX* pctx = EVP_PKEY_CTX_new_from_name(ctx, "SM2", nullptr);
  EVP_PKEY* pkey = nullptr;
  if (!pctx || EVP_PKEY_fromdata_init(pctx) != 1 ||
      EVP_PKEY_fromdata(pctx, &pkey, EVP_PKEY_KEY_PARAMETERS, params) != 1)
    pkey = nullptr;
  EVP_PKEY_CTX_free(pctx);
  return pkey;
}

Library* make_library() {
  auto* l = new (std::nothrow) Library;
  if (!l) return nullptr;
  l->ctx = OSSL_LIB_CTX_new();
  if (!l->ctx || !(l->providers[0] = OSSL_PROVIDER_load(l->ctx, "default"))) return l;
  // Without the legacy provider DES is simply not offered.
  l->providers[1] = OSSL_PROVIDER_load(l->ctx, "legacy");
  l->sm3 = EVP_MD_fetch(l->ctx, "SM3", nullptr);
  l->sha1 = EVP_MD_fetch(l->ctx, "SHA1", nullptr);
  l->sha256 = EVP_MD_fetch(l->ctx, "SHA256", nullptr);
  const char* names[4][2] = {{"SM4-ECB", "SM4-CBC"},
                             {"AES-128-ECB", "AES-128-CBC"},
                             {"DES-ECB", "DES-CBC"},
                             {"DES-EDE3-ECB", "DES-EDE3-CBC"}};
  for (int c = 0; c < 4; ++c)
    for (int m = 0; m < 2; ++m) l->ciphers[c][m] = EVP_CIPHER_fetch(l->ctx, names[c][m], nullptr);
  l->gcm = EVP_CIPHER_fetch(l->ctx, "AES-256-GCM", nullptr);
  l->pbkdf2 = EVP_KDF_fetch(l->ctx, "PBKDF2", nullptr);
  l->sm2 = EC_GROUP_new_by_curve_name_ex(l->ctx, nullptr, NID_sm2);
  l->sm2Params = sm2_parameters(l->ctx);
  l->ok = l->sm3 && l->sha1 && l->sha256 && l->gcm && l->pbkdf2 && l->sm2 && l->sm2Params;
  return l;
}

void free_library(Library* l) {
  EVP_PKEY_free(l->sm2Params);
  EC_GROUP_free(l->sm2);
  EVP_KDF_free(l->pbkdf2);
  EVP_CIPHER_free(l->gcm);
  for (auto& modes : l->ciphers)
    for (EVP_CIPHER* c : modes) EVP_CIPHER_free(c);
  EVP_MD_free(const_cast<EVP_MD*>(l->sha256));
  EVP_MD_free(const_cast<EVP_MD*>(l->sha1));
  EVP_MD_free(const_cast<EVP_MD*>(l->sm3));
  // A loaded provider keeps a reference of its own beside the context's.
  for (OSSL_PROVIDER* p : l->providers)
    if (p) OSSL_PROVIDER_unload(p);
  OSSL_LIB_CTX_free(l->ctx);
  delete l;
}

// Made on first use and kept until cleanup(): one acquire load per use.
std::atomic<Library*> g_library{nullptr};
std::mutex g_library_mutex;
const Library kNoLibrary;

const Library& lib() {
  Library* l = g_library.load(std::memory_order_acquire);
  if (l) return *l;
  std::lock_guard<std::mutex> hold(g_library_mutex);
  l = g_library.load(std::memory_order_relaxed);
  if (!l) {
    l = make_library();
    if (!l) return kNoLibrary;
    g_library.store(l, std::memory_order_release);
  }
  return *l;
}

template <class T, void (*Free)(T*)>
struct Deleter {
  void operator()(T* p) const { Free(p); }
};
using PkeyCtx = std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX, EVP_PKEY_CTX_free>>;
using Bn = std::unique_ptr<BIGNUM, Deleter<BIGNUM, BN_clear_free>>;
using ParamBld = std::unique_ptr<OSSL_PARAM_BLD, Deleter<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free>>;
using Params = std::unique_ptr<OSSL_PARAM, Deleter<OSSL_PARAM, OSSL_PARAM_free>>;
using Point = std::unique_ptr<EC_POINT, Deleter<EC_POINT, EC_POINT_free>>;
using BnCtx = std::unique_ptr<BN_CTX, Deleter<BN_CTX, BN_CTX_free>>;
using EcdsaSig = std::unique_ptr<ECDSA_SIG, Deleter<ECDSA_SIG, ECDSA_SIG_free>>;

PkeyCtx ctx_of(const Key* key) { return PkeyCtx(EVP_PKEY_CTX_new_from_pkey(lib().ctx, key->pkey, nullptr)); }

Bn bn(const SecureBytes& b) {
  return Bn(BN_bin2bn(b.empty() ? nullptr : b.data(), static_cast<int>(b.size()), BN_secure_new()));
}

bool to_bytes(const BIGNUM* n, SecureBytes& out) {
  out.assign(static_cast<std::size_t>(BN_num_bytes(n)), 0);
  return BN_bn2bin(n, out.data()) == static_cast<int>(out.size());
}

bool get_bn(const EVP_PKEY* pkey, const char* name, SecureBytes& out) {
  BIGNUM* n = nullptr;
  if (EVP_PKEY_get_bn_param(pkey, name, &n) != 1) return false;
  bool ok = to_bytes(n, out);
  BN_clear_free(n);
  return ok;
}

Key* new_key(EVP_PKEY* pkey, bool rsa, bool priv) {
  if (!pkey) return nullptr;
  Key* key = new (std::nothrow) Key{pkey, rsa, priv};
  if (!key) EVP_PKEY_free(pkey);
  return key;
}

EVP_PKEY* from_params(const char* type, int selection, OSSL_PARAM* params) {
  PkeyCtx ctx(EVP_PKEY_CTX_new_from_name(lib().ctx, type, nullptr));
  EVP_PKEY* pkey = nullptr;
  if (!ctx || EVP_PKEY_fromdata_init(ctx.get()) != 1 || EVP_PKEY_fromdata(ctx.get(), &pkey, selection, params) != 1)
    return nullptr;
  return pkey;
}

EVP_PKEY* generate(const char* type, const std::function<bool(EVP_PKEY_CTX*)>& setup) {
  PkeyCtx ctx(EVP_PKEY_CTX_new_from_name(lib().ctx, type, nullptr));
  EVP_PKEY* pkey = nullptr;
  if (!ctx || EVP_PKEY_keygen_init(ctx.get()) != 1 || !setup(ctx.get()) || EVP_PKEY_generate(ctx.get(), &pkey) != 1)
    return nullptr;
  return pkey;
}

void pad32(const unsigned char* p, std::size_t n, unsigned char* out) { crypto::right_align(p, n, out, 32); }

}  // namespace

const char* name() { return "openssl"; }

bool init() { return lib().ok; }

void cleanup() {
  std::lock_guard<std::mutex> hold(g_library_mutex);
  if (Library* l = g_library.exchange(nullptr, std::memory_order_acq_rel)) free_library(l);
}

bool random_bytes(unsigned char* out, std::size_t len) {
  // RAND_bytes takes an int: feed large requests in pieces.
  while (len > 0) {
    int chunk = len > static_cast<std::size_t>(INT_MAX) ? INT_MAX : static_cast<int>(len);
    if (RAND_bytes_ex(lib().ctx, out, static_cast<std::size_t>(chunk), 0) != 1) return false;
    out += chunk;
    len -= static_cast<std::size_t>(chunk);
  }
  return true;
}

// ---- hashes ----

namespace {
const EVP_MD* digest_of(int alg) {
  switch (alg) {
    case VOREL_HASH_SM3:
      return lib().sm3;
    case VOREL_HASH_SHA1:
      return lib().sha1;
    case VOREL_HASH_SHA256:
      return lib().sha256;
    default:
      return nullptr;
  }
}
}  // namespace

std::size_t hash_length(int alg) {
  const EVP_MD* md = digest_of(alg);
  return md ? static_cast<std::size_t>(EVP_MD_get_size(md)) : 0;
}

void* hash_new(int alg) {
  const EVP_MD* md = digest_of(alg);
  if (!md) return nullptr;
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  if (!ctx) return nullptr;
  if (EVP_DigestInit_ex(ctx, md, nullptr) != 1) {
    EVP_MD_CTX_free(ctx);
    return nullptr;
  }
  return ctx;
}

bool hash_update(void* ctx, const unsigned char* data, std::size_t len) {
  return EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(ctx), data, len) == 1;
}

bool hash_final(void* ctx, unsigned char* out) {
  return EVP_DigestFinal_ex(static_cast<EVP_MD_CTX*>(ctx), out, nullptr) == 1;
}

void hash_free(void* ctx) { EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(ctx)); }

// ---- block ciphers ----

bool cipher_available(BlockCipher cipher) { return lib().ciphers[static_cast<int>(cipher)][0] != nullptr; }

void* cipher_new(BlockCipher cipher, bool cbc, bool encrypt, const unsigned char* key, const unsigned char* iv) {
  const EVP_CIPHER* c = lib().ciphers[static_cast<int>(cipher)][cbc ? 1 : 0];
  if (!c) return nullptr;
  EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
  if (!ctx) return nullptr;
  if (EVP_CipherInit_ex2(ctx, c, key, cbc ? iv : nullptr, encrypt ? 1 : 0, nullptr) != 1 ||
      EVP_CIPHER_CTX_set_padding(ctx, 0) != 1) {
    EVP_CIPHER_CTX_free(ctx);
    return nullptr;
  }
  return ctx;
}

bool cipher_blocks(void* ctx, const unsigned char* in, std::size_t len, unsigned char* out) {
  auto* c = static_cast<EVP_CIPHER_CTX*>(ctx);
  while (len > 0) {
    // EVP_CipherUpdate counts in int; keep each step a whole number of blocks.
    std::size_t step = len > (1u << 30) ? (1u << 30) : len;
    int produced = 0;
    if (EVP_CipherUpdate(c, out, &produced, in, static_cast<int>(step)) != 1 ||
        static_cast<std::size_t>(produced) != step)
      return false;
    in += step;
    out += step;
    len -= step;
  }
  return true;
}

void cipher_free(void* ctx) { EVP_CIPHER_CTX_free(static_cast<EVP_CIPHER_CTX*>(ctx)); }

// ---- key derivation and sealing ----

bool pbkdf2_sha256(const unsigned char* pass, std::size_t passLen, const unsigned char* salt, std::size_t saltLen,
                   unsigned iterations, unsigned char* out, std::size_t outLen) {
  if (!init()) return false;
  EVP_KDF_CTX* kctx = EVP_KDF_CTX_new(lib().pbkdf2);
  if (!kctx) return false;
  char digest[] = "SHA256";
  uint64_t iter = iterations;
  OSSL_PARAM params[] = {
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_PASSWORD, const_cast<unsigned char*>(pass), passLen),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, const_cast<unsigned char*>(salt), saltLen),
      OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_ITER, &iter),
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0), OSSL_PARAM_construct_end()};
  bool ok = EVP_KDF_derive(kctx, out, outLen, params) == 1;
  EVP_KDF_CTX_free(kctx);
  return ok;
}

// One GCM pass; tag is written when sealing and checked when opening.
bool gcm(bool seal, const unsigned char* key, const unsigned char* iv, const unsigned char* aad, std::size_t aadLen,
         const unsigned char* in, std::size_t len, unsigned char* out, unsigned char* tag) {
  if (!init() || len > INT_MAX || aadLen > INT_MAX) return false;
  EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
  if (!ctx) return false;
  int n = 0;
  bool ok = EVP_CipherInit_ex2(ctx, lib().gcm, key, iv, seal ? 1 : 0, nullptr) == 1 &&
            (aadLen == 0 || EVP_CipherUpdate(ctx, nullptr, &n, aad, static_cast<int>(aadLen)) == 1) &&
            (len == 0 || EVP_CipherUpdate(ctx, out, &n, in, static_cast<int>(len)) == 1) &&
            (seal || EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_SET_TAG, 16, tag) == 1) &&
            EVP_CipherFinal_ex(ctx, out + len, &n) == 1 &&
            (!seal || EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_GET_TAG, 16, tag) == 1);
  EVP_CIPHER_CTX_free(ctx);
  return ok;
}

// ---- keys ----

Key* rsa_generate(unsigned bits, unsigned long exponent) {
  if (!init()) return nullptr;
  Bn e(BN_new());
  if (!e || BN_set_word(e.get(), exponent) != 1) return nullptr;
  EVP_PKEY* pkey = generate("RSA", [&](EVP_PKEY_CTX* ctx) {
    return EVP_PKEY_CTX_set_rsa_keygen_bits(ctx, static_cast<int>(bits)) == 1 &&
           EVP_PKEY_CTX_set1_rsa_keygen_pubexp(ctx, e.get()) == 1;
  });
  return new_key(pkey, true, true);
}

Key* rsa_import(const RsaNumbers& k, bool priv) {
  if (!init()) return nullptr;
  ParamBld bld(OSSL_PARAM_BLD_new());
  if (!bld) return nullptr;
  struct Item {
    const char* name;
    const SecureBytes* value;
  };
  const Item items[] = {{OSSL_PKEY_PARAM_RSA_N, &k.n},          {OSSL_PKEY_PARAM_RSA_E, &k.e},
                        {OSSL_PKEY_PARAM_RSA_D, &k.d},          {OSSL_PKEY_PARAM_RSA_FACTOR1, &k.p},
                        {OSSL_PKEY_PARAM_RSA_FACTOR2, &k.q},    {OSSL_PKEY_PARAM_RSA_EXPONENT1, &k.dp},
                        {OSSL_PKEY_PARAM_RSA_EXPONENT2, &k.dq}, {OSSL_PKEY_PARAM_RSA_COEFFICIENT1, &k.qinv}};
  std::size_t count = priv ? 8 : 2;
  Bn numbers[8];
  for (std::size_t i = 0; i < count; ++i) {
    numbers[i] = bn(*items[i].value);
    if (!numbers[i] || OSSL_PARAM_BLD_push_BN(bld.get(), items[i].name, numbers[i].get()) != 1) return nullptr;
  }
  if (priv) {
    // A cheap consistency test: the factors must make the modulus.
    BnCtx bctx(BN_CTX_new_ex(lib().ctx));
    Bn product(BN_secure_new());
    if (!bctx || !product || BN_mul(product.get(), numbers[3].get(), numbers[4].get(), bctx.get()) != 1 ||
        BN_cmp(product.get(), numbers[0].get()) != 0)
      return nullptr;
  }
  Params params(OSSL_PARAM_BLD_to_param(bld.get()));
  if (!params) return nullptr;
  return new_key(from_params("RSA", priv ? EVP_PKEY_KEYPAIR : EVP_PKEY_PUBLIC_KEY, params.get()), true, priv);
}

unsigned rsa_bits(const Key* key) { return key->rsa ? static_cast<unsigned>(EVP_PKEY_get_bits(key->pkey)) : 0; }

bool rsa_export(const Key* key, RsaNumbers& k, bool priv) {
  if (!key->rsa || (priv && !key->priv)) return false;
  if (!get_bn(key->pkey, OSSL_PKEY_PARAM_RSA_N, k.n) || !get_bn(key->pkey, OSSL_PKEY_PARAM_RSA_E, k.e)) return false;
  if (!priv) return true;
  return get_bn(key->pkey, OSSL_PKEY_PARAM_RSA_D, k.d) && get_bn(key->pkey, OSSL_PKEY_PARAM_RSA_FACTOR1, k.p) &&
         get_bn(key->pkey, OSSL_PKEY_PARAM_RSA_FACTOR2, k.q) &&
         get_bn(key->pkey, OSSL_PKEY_PARAM_RSA_EXPONENT1, k.dp) &&
         get_bn(key->pkey, OSSL_PKEY_PARAM_RSA_EXPONENT2, k.dq) &&
         get_bn(key->pkey, OSSL_PKEY_PARAM_RSA_COEFFICIENT1, k.qinv);
}

Key* sm2_generate() {
  if (!init()) return nullptr;
  return new_key(generate("SM2", [](EVP_PKEY_CTX*) { return true; }), false, true);
}

Key* sm2_import(const unsigned char* q, const unsigned char* d) {
  if (!init() || (!q && !d)) return nullptr;
  unsigned char point[65];
  Bn priv;
  if (d) {
    priv.reset(BN_bin2bn(d, 32, BN_secure_new()));
    if (!priv) return nullptr;
    BN_set_flags(priv.get(), BN_FLG_CONSTTIME);
  }
  if (q) {
    std::memcpy(point, q, sizeof point);
  } else {
    // Only the private value was given: its public point is d·G.
    Point p(EC_POINT_new(lib().sm2));
    BnCtx bctx(BN_CTX_new_ex(lib().ctx));
    if (!p || !bctx || EC_POINT_mul(lib().sm2, p.get(), priv.get(), nullptr, nullptr, bctx.get()) != 1 ||
        EC_POINT_point2oct(lib().sm2, p.get(), POINT_CONVERSION_UNCOMPRESSED, point, sizeof point, bctx.get()) !=
            sizeof point)
      return nullptr;
  }
  if (!priv) {
    // A public key copies the curve of a kept key and takes the point, which must lie on it:
    // much cheaper than building the curve again for every key.
    EVP_PKEY* pkey = EVP_PKEY_new();
    if (pkey && EVP_PKEY_copy_parameters(pkey, lib().sm2Params) == 1 &&
        EVP_PKEY_set1_encoded_public_key(pkey, point, sizeof point) == 1)
      return new_key(pkey, false, false);
    EVP_PKEY_free(pkey);
    return nullptr;
  }
  ParamBld bld(OSSL_PARAM_BLD_new());
  if (!bld || OSSL_PARAM_BLD_push_utf8_string(bld.get(), OSSL_PKEY_PARAM_GROUP_NAME, "SM2", 0) != 1 ||
      OSSL_PARAM_BLD_push_octet_string(bld.get(), OSSL_PKEY_PARAM_PUB_KEY, point, sizeof point) != 1 ||
      (priv && OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_PRIV_KEY, priv.get()) != 1))
    return nullptr;
  Params params(OSSL_PARAM_BLD_to_param(bld.get()));
  if (!params) return nullptr;
  EVP_PKEY* pkey = from_params("SM2", priv ? EVP_PKEY_KEYPAIR : EVP_PKEY_PUBLIC_KEY, params.get());
  Key* key = new_key(pkey, false, priv != nullptr);
  if (key && q && priv) {
    // Both halves given: they must belong together.
    PkeyCtx ctx = ctx_of(key);
    if (!ctx || EVP_PKEY_pairwise_check(ctx.get()) != 1) {
      key_free(key);
      return nullptr;
    }
  }
  return key;
}

bool sm2_export(const Key* key, unsigned char* q, unsigned char* d) {
  if (key->rsa) return false;
  std::size_t len = 0;
  if (EVP_PKEY_get_octet_string_param(key->pkey, OSSL_PKEY_PARAM_PUB_KEY, q, 65, &len) != 1 || len != 65 ||
      q[0] != 0x04)
    return false;
  if (!d) return true;
  if (!key->priv) return false;
  BIGNUM* n = nullptr;
  if (EVP_PKEY_get_bn_param(key->pkey, OSSL_PKEY_PARAM_PRIV_KEY, &n) != 1) return false;
  bool ok = BN_bn2binpad(n, d, 32) == 32;
  BN_clear_free(n);
  return ok;
}

void key_free(Key* key) {
  if (!key) return;
  EVP_PKEY_free(key->pkey);
  delete key;
}

// ---- RSA ----

int rsa_encrypt(const Key* key, bool pkcs1, const unsigned char* in, std::size_t inLen, unsigned char* out) {
  PkeyCtx ctx = ctx_of(key);
  std::size_t outLen = static_cast<std::size_t>(EVP_PKEY_get_size(key->pkey));
  if (!ctx || EVP_PKEY_encrypt_init(ctx.get()) != 1 ||
      EVP_PKEY_CTX_set_rsa_padding(ctx.get(), pkcs1 ? RSA_PKCS1_PADDING : RSA_NO_PADDING) != 1)
    return VOREL_ERR_GENERAL;
  // Raw input at or above the modulus is the caller's error, not ours.
  if (EVP_PKEY_encrypt(ctx.get(), out, &outLen, in, inLen) != 1) return pkcs1 ? VOREL_ERR_GENERAL : VOREL_ERR_DATA_LEN;
  return VOREL_OK;
}

int rsa_decrypt(const Key* key, bool pkcs1, const unsigned char* in, std::size_t inLen, unsigned char* out,
                std::size_t* outLen) {
  PkeyCtx ctx = ctx_of(key);
  *outLen = static_cast<std::size_t>(EVP_PKEY_get_size(key->pkey));
  if (!ctx || EVP_PKEY_decrypt_init(ctx.get()) != 1 ||
      EVP_PKEY_CTX_set_rsa_padding(ctx.get(), pkcs1 ? RSA_PKCS1_PADDING : RSA_NO_PADDING) != 1)
    return VOREL_ERR_GENERAL;
  if (EVP_PKEY_decrypt(ctx.get(), out, outLen, in, inLen) != 1) return pkcs1 ? VOREL_ERR_DECRYPT : VOREL_ERR_DATA_LEN;
  return VOREL_OK;
}

int rsa_sign_pkcs1(const Key* key, const unsigned char* in, std::size_t inLen, unsigned char* out) {
  PkeyCtx ctx = ctx_of(key);
  std::size_t outLen = static_cast<std::size_t>(EVP_PKEY_get_size(key->pkey));
  if (!ctx || EVP_PKEY_sign_init(ctx.get()) != 1 || EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) != 1 ||
      EVP_PKEY_sign(ctx.get(), out, &outLen, in, inLen) != 1)
    return VOREL_ERR_GENERAL;
  return VOREL_OK;
}

int rsa_verify_pkcs1(const Key* key, const unsigned char* in, std::size_t inLen, const unsigned char* sig) {
  PkeyCtx ctx = ctx_of(key);
  std::size_t sigLen = static_cast<std::size_t>(EVP_PKEY_get_size(key->pkey));
  if (!ctx || EVP_PKEY_verify_init(ctx.get()) != 1 || EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) != 1)
    return VOREL_ERR_GENERAL;
  return EVP_PKEY_verify(ctx.get(), sig, sigLen, in, inLen) == 1 ? VOREL_OK : VOREL_ERR_BAD_SIGNATURE;
}

// ---- SM2 ----

int sm2_sign(const Key* key, const unsigned char* e, unsigned char* r, unsigned char* s) {
  PkeyCtx ctx = ctx_of(key);
  unsigned char der[80];
  std::size_t derLen = sizeof der;
  if (!ctx || EVP_PKEY_sign_init(ctx.get()) != 1 || EVP_PKEY_sign(ctx.get(), der, &derLen, e, 32) != 1)
    return VOREL_ERR_GENERAL;
  const unsigned char* p = der;
  EcdsaSig sig(d2i_ECDSA_SIG(nullptr, &p, static_cast<long>(derLen)));
  if (!sig || BN_bn2binpad(ECDSA_SIG_get0_r(sig.get()), r, 32) != 32 ||
      BN_bn2binpad(ECDSA_SIG_get0_s(sig.get()), s, 32) != 32)
    return VOREL_ERR_GENERAL;
  return VOREL_OK;
}

int sm2_verify(const Key* key, const unsigned char* e, const unsigned char* r, const unsigned char* s) {
  crypto::der::Writer w;
  w.sequence([&](crypto::der::Writer& seq) {
    seq.integer(r, 32);
    seq.integer(s, 32);
  });
  PkeyCtx ctx = ctx_of(key);
  if (!ctx || EVP_PKEY_verify_init(ctx.get()) != 1) return VOREL_ERR_GENERAL;
  const SecureBytes& der = w.bytes();
  return EVP_PKEY_verify(ctx.get(), der.data(), der.size(), e, 32) == 1 ? VOREL_OK : VOREL_ERR_BAD_SIGNATURE;
}

// OpenSSL speaks the GM/T 0009 DER form SEQUENCE { x, y, C3, C2 }; the seam speaks 04 || x || y || C2 || C3.
int sm2_encrypt(const Key* key, const unsigned char* m, std::size_t len, unsigned char* out) {
  PkeyCtx ctx = ctx_of(key);
  std::size_t derLen = 0;
  if (!ctx || EVP_PKEY_encrypt_init(ctx.get()) != 1 || EVP_PKEY_encrypt(ctx.get(), nullptr, &derLen, m, len) != 1)
    return VOREL_ERR_GENERAL;
  SecureBytes der(derLen);
  if (EVP_PKEY_encrypt(ctx.get(), der.data(), &derLen, m, len) != 1) return VOREL_ERR_GENERAL;
  crypto::der::Reader outer(der.data(), derLen), seq;
  const unsigned char *x, *y, *c3, *c2;
  std::size_t xLen, yLen, c3Len, c2Len;
  if (!outer.next(crypto::der::kSequence, seq) || !seq.integer(&x, &xLen) || !seq.integer(&y, &yLen) ||
      !seq.next(crypto::der::kOctetString, &c3, &c3Len) || !seq.next(crypto::der::kOctetString, &c2, &c2Len) ||
      xLen > 32 || yLen > 32 || c3Len != 32 || c2Len != len)
    return VOREL_ERR_GENERAL;
  out[0] = 0x04;
  pad32(x, xLen, out + 1);
  pad32(y, yLen, out + 33);
  std::memcpy(out + 65, c2, len);
  std::memcpy(out + 65 + len, c3, 32);
  return VOREL_OK;
}

int sm2_decrypt(const Key* key, const unsigned char* c, std::size_t len, unsigned char* out) {
  std::size_t mLen = len - 97;
  crypto::der::Writer w;
  w.sequence([&](crypto::der::Writer& seq) {
    seq.integer(c + 1, 32);
    seq.integer(c + 33, 32);
    seq.octet_string(c + 65 + mLen, 32);
    seq.octet_string(c + 65, mLen);
  });
  PkeyCtx ctx = ctx_of(key);
  if (!ctx || EVP_PKEY_decrypt_init(ctx.get()) != 1) return VOREL_ERR_GENERAL;
  // OpenSSL sizes its output from the DER length, a little above the plaintext.
  const SecureBytes& der = w.bytes();
  SecureBytes plain(der.size());
  std::size_t outLen = plain.size();
  if (EVP_PKEY_decrypt(ctx.get(), plain.data(), &outLen, der.data(), der.size()) != 1 || outLen != mLen)
    return VOREL_ERR_DECRYPT;
  if (mLen > 0) std::memcpy(out, plain.data(), mLen);
  return VOREL_OK;
}

}  // namespace vorel::VOREL_BACKEND_NS
