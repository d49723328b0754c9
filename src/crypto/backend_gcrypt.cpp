// The seam over libgcrypt 1.10.
//
// SM2 encryption and decryption are composed here per GB/T 32918.4 from libgcrypt's point
// arithmetic and SM3, because libgcrypt's own SM2 encryption hashes C3 over shortened
// coordinates, drops leading zero bytes of the plaintext and decrypts on a variable-time path.
// Secret scalars live in secure memory, which makes libgcrypt multiply in constant time.
// SM2 signing uses deterministic k (RFC 6979) instead of a draw from the very strong pool.
#include <gcrypt.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>

#include "crypto/backend.h"
#include "vorel/vorel_crypto.h"

namespace vorel::VOREL_BACKEND_NS {

struct Key {
  bool rsa;
  bool priv;
  gcry_sexp_t pub;  // (public-key ...)
  gcry_sexp_t sec;  // (private-key ...) or nullptr
  std::size_t k;    // RSA modulus length in bytes
  unsigned char q[65];
  gcry_mpi_t d;  // SM2 private value, secure memory
};

namespace {

template <class T, void (*Free)(T)>
struct Deleter {
  void operator()(T p) const { Free(p); }
};
struct SexpFree {
  void operator()(gcry_sexp_t s) const { gcry_sexp_release(s); }
};
struct MpiFree {
  void operator()(gcry_mpi_t m) const { gcry_mpi_release(m); }
};
struct PointFree {
  void operator()(gcry_mpi_point_t p) const { gcry_mpi_point_release(p); }
};
struct CtxFree {
  void operator()(gcry_ctx_t c) const { gcry_ctx_release(c); }
};
using Sexp = std::unique_ptr<gcry_sexp, SexpFree>;
using Mpi = std::unique_ptr<gcry_mpi, MpiFree>;
using PointPtr = std::unique_ptr<gcry_mpi_point, PointFree>;
using EcCtx = std::unique_ptr<gcry_context, CtxFree>;

const char kCurve[] = "sm2p256v1";

Mpi mpi_from(const unsigned char* p, std::size_t n, bool secret) {
  gcry_mpi_t m = nullptr;
  if (gcry_mpi_scan(&m, GCRYMPI_FMT_USG, p, n, nullptr) != 0) return nullptr;
  if (secret) {
    // Copy into secure memory; the scanned value is wiped on release.
    gcry_mpi_t s = gcry_mpi_snew(static_cast<unsigned>(n * 8));
    gcry_mpi_set(s, m);
    gcry_mpi_release(m);
    m = s;
  }
  return Mpi(m);
}

// Right-aligned into out[width]; false when it does not fit.
bool mpi_to(gcry_mpi_t m, unsigned char* out, std::size_t width) {
  unsigned char buf[512];
  std::size_t n = 0;
  if (gcry_mpi_print(GCRYMPI_FMT_USG, buf, sizeof buf, &n, m) != 0) return false;
  bool ok = crypto::right_align(buf, n, out, width);
  crypto::wipe(buf, sizeof buf);
  return ok;
}

bool mpi_to(gcry_mpi_t m, SecureBytes& out) {
  unsigned char* buf = nullptr;
  std::size_t n = 0;
  if (gcry_mpi_aprint(GCRYMPI_FMT_USG, &buf, &n, m) != 0) return false;
  out.assign(buf, buf + n);
  crypto::wipe(buf, n);
  gcry_free(buf);
  // aprint writes a single zero byte for zero.
  if (out.size() == 1 && out[0] == 0) out.clear();
  return true;
}

Mpi token_mpi(gcry_sexp_t s, const char* name) {
  Sexp t(gcry_sexp_find_token(s, name, 0));
  if (!t) return nullptr;
  return Mpi(gcry_sexp_nth_mpi(t.get(), 1, GCRYMPI_FMT_USG));
}

bool token_bytes(gcry_sexp_t s, const char* name, SecureBytes& out) {
  Sexp t(gcry_sexp_find_token(s, name, 0));
  if (!t) return false;
  std::size_t n = 0;
  const char* p = gcry_sexp_nth_data(t.get(), 1, &n);
  if (!p) return false;
  out.assign(reinterpret_cast<const unsigned char*>(p), reinterpret_cast<const unsigned char*>(p) + n);
  return true;
}

Key* new_key() {
  Key* key = new (std::nothrow) Key{};
  return key;
}

EcCtx curve_ctx() {
  gcry_ctx_t ctx = nullptr;
  if (gcry_mpi_ec_new(&ctx, nullptr, kCurve) != 0) return nullptr;
  return EcCtx(ctx);
}

PointPtr point_of(const unsigned char* q) {
  Mpi x = mpi_from(q + 1, 32, false), y = mpi_from(q + 33, 32, false);
  if (!x || !y) return nullptr;
  return PointPtr(gcry_mpi_point_set(nullptr, x.get(), y.get(), GCRYMPI_CONST_ONE));
}

// Affine coordinates of p as 32 + 32 bytes; false at infinity.
bool affine(gcry_mpi_point_t p, gcry_ctx_t ctx, unsigned char* xy, bool secret) {
  Mpi x(secret ? gcry_mpi_snew(256) : gcry_mpi_new(256)), y(secret ? gcry_mpi_snew(256) : gcry_mpi_new(256));
  if (gcry_mpi_ec_get_affine(x.get(), y.get(), p, ctx) != 0) return false;
  return mpi_to(x.get(), xy, 32) && mpi_to(y.get(), xy + 32, 32);
}

// The key derivation function of GB/T 32918.4: SM3(Z || counter) blocks; false when t is all zero.
bool kdf(const unsigned char* z, std::size_t zLen, unsigned char* t, std::size_t tLen) {
  gcry_md_hd_t md = nullptr;
  if (gcry_md_open(&md, GCRY_MD_SM3, GCRY_MD_FLAG_SECURE) != 0) return false;
  unsigned char any = 0;
  for (std::uint32_t counter = 1; tLen > 0; ++counter) {
    unsigned char ct[4] = {static_cast<unsigned char>(counter >> 24), static_cast<unsigned char>(counter >> 16),
                           static_cast<unsigned char>(counter >> 8), static_cast<unsigned char>(counter)};
    gcry_md_reset(md);
    gcry_md_write(md, z, zLen);
    gcry_md_write(md, ct, sizeof ct);
    const unsigned char* block = gcry_md_read(md, GCRY_MD_SM3);
    std::size_t n = tLen < 32 ? tLen : 32;
    for (std::size_t i = 0; i < n; ++i) any |= (t[i] = block[i]);
    t += n;
    tLen -= n;
  }
  gcry_md_close(md);
  return any != 0;
}

// C3 = SM3(x2 || M || y2).
void c3_of(const unsigned char* x2y2, const unsigned char* m, std::size_t len, unsigned char* c3) {
  gcry_buffer_t parts[3] = {};
  parts[0].data = const_cast<unsigned char*>(x2y2);
  parts[0].len = 32;
  parts[1].data = const_cast<unsigned char*>(m);
  parts[1].len = len;
  parts[2].data = const_cast<unsigned char*>(x2y2 + 32);
  parts[2].len = 32;
  gcry_md_hash_buffers(GCRY_MD_SM3, 0, c3, parts, 3);
}

bool build_sm2(Key* key) {
  gcry_sexp_t pub = nullptr, sec = nullptr;
  if (gcry_sexp_build(&pub, nullptr, "(public-key (ecc (curve %s)(q %b)))", kCurve, 65, key->q) != 0) return false;
  key->pub = pub;
  if (!key->d) return true;
  if (gcry_sexp_build(&sec, nullptr, "(private-key (ecc (curve %s)(q %b)(d %m)))", kCurve, 65, key->q, key->d) != 0)
    return false;
  key->sec = sec;
  return true;
}

}  // namespace

const char* name() { return "libgcrypt"; }

bool init() {
  static bool ok = false;
  static std::once_flag once;
  std::call_once(once, [] {
    // Another component of the process may have initialised libgcrypt already.
    if (gcry_control(GCRYCTL_INITIALIZATION_FINISHED_P)) {
      ok = true;
      return;
    }
    // Notes such as the Windows entropy gatherer's "you should run 'diskperf -y'" are not for
    // our callers' consoles.
    gcry_set_log_handler(
        [](void*, int level, const char* fmt, va_list args) {
          if (level >= GCRY_LOG_ERROR) std::vfprintf(stderr, fmt, args);
        },
        nullptr);
    if (!gcry_check_version(GCRYPT_VERSION)) return;
    gcry_control(GCRYCTL_INIT_SECMEM, 1 << 18, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    ok = true;
  });
  return ok;
}

// libgcrypt keeps its state for the process; nothing of it belongs to us.
void cleanup() {}

bool random_bytes(unsigned char* out, std::size_t len) {
  if (!init()) return false;
  gcry_randomize(out, len, GCRY_STRONG_RANDOM);
  return true;
}

// ---- hashes ----

namespace {
int md_of(int alg) {
  switch (alg) {
    case VOREL_HASH_SM3:
      return GCRY_MD_SM3;
    case VOREL_HASH_SHA1:
      return GCRY_MD_SHA1;
    case VOREL_HASH_SHA256:
      return GCRY_MD_SHA256;
    default:
      return GCRY_MD_NONE;
  }
}
}  // namespace

std::size_t hash_length(int alg) {
  int md = md_of(alg);
  return md == GCRY_MD_NONE ? 0 : gcry_md_get_algo_dlen(md);
}

void* hash_new(int alg) {
  int md = md_of(alg);
  if (md == GCRY_MD_NONE || !init()) return nullptr;
  gcry_md_hd_t hd = nullptr;
  if (gcry_md_open(&hd, md, 0) != 0) return nullptr;
  return hd;
}

bool hash_update(void* ctx, const unsigned char* data, std::size_t len) {
  gcry_md_write(static_cast<gcry_md_hd_t>(ctx), data, len);
  return true;
}

bool hash_final(void* ctx, unsigned char* out) {
  auto hd = static_cast<gcry_md_hd_t>(ctx);
  int md = gcry_md_get_algo(hd);
  const unsigned char* digest = gcry_md_read(hd, md);
  if (!digest) return false;
  std::memcpy(out, digest, gcry_md_get_algo_dlen(md));
  return true;
}

void hash_free(void* ctx) { gcry_md_close(static_cast<gcry_md_hd_t>(ctx)); }

// ---- key derivation and sealing ----

bool pbkdf2_sha256(const unsigned char* pass, std::size_t passLen, const unsigned char* salt, std::size_t saltLen,
                   unsigned iterations, unsigned char* out, std::size_t outLen) {
  if (!init() || iterations == 0) return false;
  return gcry_kdf_derive(pass, passLen, GCRY_KDF_PBKDF2, GCRY_MD_SHA256, salt, saltLen, iterations, outLen, out) == 0;
}

bool gcm(bool seal, const unsigned char* key, const unsigned char* iv, const unsigned char* aad, std::size_t aadLen,
         const unsigned char* in, std::size_t len, unsigned char* out, unsigned char* tag) {
  if (!init()) return false;
  gcry_cipher_hd_t hd = nullptr;
  if (gcry_cipher_open(&hd, GCRY_CIPHER_AES256, GCRY_CIPHER_MODE_GCM, GCRY_CIPHER_SECURE) != 0) return false;
  bool ok = gcry_cipher_setkey(hd, key, 32) == 0 && gcry_cipher_setiv(hd, iv, 12) == 0 &&
            (aadLen == 0 || gcry_cipher_authenticate(hd, aad, aadLen) == 0);
  if (ok && seal) {
    ok = gcry_cipher_final(hd) == 0 && gcry_cipher_encrypt(hd, out, len, in, len) == 0 &&
         gcry_cipher_gettag(hd, tag, 16) == 0;
  } else if (ok) {
    ok = gcry_cipher_final(hd) == 0 && gcry_cipher_decrypt(hd, out, len, in, len) == 0 &&
         gcry_cipher_checktag(hd, tag, 16) == 0;
  }
  gcry_cipher_close(hd);
  return ok;
}

// ---- block ciphers ----

namespace {
int algo_of(BlockCipher cipher) {
  switch (cipher) {
    case BlockCipher::Sm4:
      return GCRY_CIPHER_SM4;
    case BlockCipher::Aes128:
      return GCRY_CIPHER_AES128;
    case BlockCipher::Des:
      return GCRY_CIPHER_DES;
    case BlockCipher::Des3:
      return GCRY_CIPHER_3DES;
  }
  return GCRY_CIPHER_NONE;
}
}  // namespace

bool cipher_available(BlockCipher cipher) {
  return init() && gcry_cipher_algo_info(algo_of(cipher), GCRYCTL_TEST_ALGO, nullptr, nullptr) == 0;
}

namespace {
struct Cipher {
  gcry_cipher_hd_t hd;
  bool encrypt;
};
}  // namespace

void* cipher_new(BlockCipher cipher, bool cbc, bool encrypt, const unsigned char* key, const unsigned char* iv) {
  if (!init()) return nullptr;
  int algo = algo_of(cipher);
  gcry_cipher_hd_t hd = nullptr;
  if (gcry_cipher_open(&hd, algo, cbc ? GCRY_CIPHER_MODE_CBC : GCRY_CIPHER_MODE_ECB, GCRY_CIPHER_SECURE) != 0)
    return nullptr;
  std::size_t keyLen = gcry_cipher_get_algo_keylen(algo);
  std::size_t blockLen = gcry_cipher_get_algo_blklen(algo);
  gcry_error_t err = gcry_cipher_setkey(hd, key, keyLen);
  // DES weak keys are refused by setkey but are keys all the same for a token.
  if (gcry_err_code(err) == GPG_ERR_WEAK_KEY) err = 0;
  if (err == 0 && cbc) err = gcry_cipher_setiv(hd, iv, blockLen);
  if (err != 0) {
    gcry_cipher_close(hd);
    return nullptr;
  }
  auto* c = new (std::nothrow) Cipher{hd, encrypt};
  if (!c) gcry_cipher_close(hd);
  return c;
}

bool cipher_blocks(void* ctx, const unsigned char* in, std::size_t len, unsigned char* out) {
  auto* c = static_cast<Cipher*>(ctx);
  if (len == 0) return true;
  gcry_error_t err =
      c->encrypt ? gcry_cipher_encrypt(c->hd, out, len, in, len) : gcry_cipher_decrypt(c->hd, out, len, in, len);
  return err == 0;
}

void cipher_free(void* ctx) {
  auto* c = static_cast<Cipher*>(ctx);
  if (!c) return;
  gcry_cipher_close(c->hd);
  delete c;
}

// ---- keys ----

namespace {
Key* rsa_from_sexp(gcry_sexp_t pub, gcry_sexp_t sec) {
  Key* key = new_key();
  if (!key) {
    gcry_sexp_release(pub);
    gcry_sexp_release(sec);
    return nullptr;
  }
  key->rsa = true;
  key->priv = sec != nullptr;
  key->pub = pub;
  key->sec = sec;
  key->k = (gcry_pk_get_nbits(pub) + 7) / 8;
  return key;
}
}  // namespace

Key* rsa_generate(unsigned bits, unsigned long exponent) {
  if (!init()) return nullptr;
  gcry_sexp_t parms = nullptr, pair = nullptr;
  if (gcry_sexp_build(&parms, nullptr, "(genkey (rsa (nbits %u)(rsa-use-e %u)))", bits,
                      static_cast<unsigned>(exponent)) != 0)
    return nullptr;
  Sexp p(parms);
  if (gcry_pk_genkey(&pair, parms) != 0) return nullptr;
  Sexp kp(pair);
  return rsa_from_sexp(gcry_sexp_find_token(pair, "public-key", 0), gcry_sexp_find_token(pair, "private-key", 0));
}

Key* rsa_import(const RsaNumbers& k, bool priv) {
  if (!init()) return nullptr;
  gcry_sexp_t pub = nullptr, sec = nullptr;
  Mpi n = mpi_from(k.n.data(), k.n.size(), false), e = mpi_from(k.e.data(), k.e.size(), false);
  if (!n || !e || gcry_sexp_build(&pub, nullptr, "(public-key (rsa (n %m)(e %m)))", n.get(), e.get()) != 0)
    return nullptr;
  if (priv) {
    // libgcrypt keeps u = p^-1 mod q where PKCS#1 keeps qinv = q^-1 mod p: swap the primes.
    Mpi d = mpi_from(k.d.data(), k.d.size(), true), p = mpi_from(k.q.data(), k.q.size(), true),
        q = mpi_from(k.p.data(), k.p.size(), true), u = mpi_from(k.qinv.data(), k.qinv.size(), true);
    if (!d || !p || !q || !u ||
        gcry_sexp_build(&sec, nullptr, "(private-key (rsa (n %m)(e %m)(d %m)(p %m)(q %m)(u %m)))", n.get(), e.get(),
                        d.get(), p.get(), q.get(), u.get()) != 0 ||
        gcry_pk_testkey(sec) != 0) {
      gcry_sexp_release(pub);
      gcry_sexp_release(sec);
      return nullptr;
    }
  }
  return rsa_from_sexp(pub, sec);
}

unsigned rsa_bits(const Key* key) { return key->rsa ? gcry_pk_get_nbits(key->pub) : 0; }

bool rsa_export(const Key* key, RsaNumbers& k, bool priv) {
  if (!key->rsa || (priv && !key->priv)) return false;
  gcry_sexp_t s = priv ? key->sec : key->pub;
  Mpi n = token_mpi(s, "n"), e = token_mpi(s, "e");
  if (!n || !e || !mpi_to(n.get(), k.n) || !mpi_to(e.get(), k.e)) return false;
  if (!priv) return true;
  Mpi d = token_mpi(s, "d"), p = token_mpi(s, "p"), q = token_mpi(s, "q"), u = token_mpi(s, "u");
  if (!d || !p || !q || !u) return false;
  // PKCS#1 order: its p is libgcrypt's q, its q libgcrypt's p, and qinv libgcrypt's u.
  Mpi dp(gcry_mpi_snew(0)), dq(gcry_mpi_snew(0)), t(gcry_mpi_snew(0));
  gcry_mpi_sub_ui(t.get(), q.get(), 1);
  gcry_mpi_mod(dp.get(), d.get(), t.get());
  gcry_mpi_sub_ui(t.get(), p.get(), 1);
  gcry_mpi_mod(dq.get(), d.get(), t.get());
  return mpi_to(d.get(), k.d) && mpi_to(q.get(), k.p) && mpi_to(p.get(), k.q) && mpi_to(dp.get(), k.dp) &&
         mpi_to(dq.get(), k.dq) && mpi_to(u.get(), k.qinv);
}

Key* sm2_generate() {
  if (!init()) return nullptr;
  gcry_sexp_t parms = nullptr, pair = nullptr;
  if (gcry_sexp_build(&parms, nullptr, "(genkey (ecc (curve %s)))", kCurve) != 0) return nullptr;
  Sexp p(parms);
  if (gcry_pk_genkey(&pair, parms) != 0) return nullptr;
  Sexp kp(pair);
  Sexp sec(gcry_sexp_find_token(pair, "private-key", 0));
  SecureBytes q, d;
  if (!sec || !token_bytes(sec.get(), "q", q) || q.size() != 65) return nullptr;
  Mpi dm = token_mpi(sec.get(), "d");
  unsigned char d32[32];
  if (!dm || !mpi_to(dm.get(), d32, 32)) return nullptr;
  Key* key = sm2_import(q.data(), d32);
  crypto::wipe(d32, sizeof d32);
  return key;
}

Key* sm2_import(const unsigned char* q, const unsigned char* d) {
  if (!init() || (!q && !d)) return nullptr;
  EcCtx ctx = curve_ctx();
  if (!ctx) return nullptr;
  std::unique_ptr<Key, void (*)(Key*)> key(new_key(), key_free);
  if (!key) return nullptr;
  if (d) {
    key->d = mpi_from(d, 32, true).release();
    if (!key->d) return nullptr;
    key->priv = true;
    // The public point d·G, computed to fill in a missing point or to check a given one.
    PointPtr g(gcry_mpi_ec_get_point("g", ctx.get(), 1)), pt(gcry_mpi_point_new(0));
    unsigned char xy[64];
    gcry_mpi_ec_mul(pt.get(), key->d, g.get(), ctx.get());
    if (!affine(pt.get(), ctx.get(), xy, false)) return nullptr;
    if (q && (q[0] != 0x04 || std::memcmp(q + 1, xy, 64) != 0)) return nullptr;
    key->q[0] = 0x04;
    std::memcpy(key->q + 1, xy, 64);
  } else {
    if (q[0] != 0x04) return nullptr;
    PointPtr pt = point_of(q);
    if (!pt || !gcry_mpi_ec_curve_point(pt.get(), ctx.get())) return nullptr;
    std::memcpy(key->q, q, 65);
  }
  if (!build_sm2(key.get())) return nullptr;
  return key.release();
}

bool sm2_export(const Key* key, unsigned char* q, unsigned char* d) {
  if (key->rsa) return false;
  std::memcpy(q, key->q, 65);
  if (!d) return true;
  return key->d && mpi_to(key->d, d, 32);
}

void key_free(Key* key) {
  if (!key) return;
  gcry_sexp_release(key->pub);
  gcry_sexp_release(key->sec);
  gcry_mpi_release(key->d);
  delete key;
}

// ---- RSA ----

int rsa_encrypt(const Key* key, bool pkcs1, const unsigned char* in, std::size_t inLen, unsigned char* out) {
  gcry_sexp_t data = nullptr, result = nullptr;
  if (gcry_sexp_build(&data, nullptr, pkcs1 ? "(data (flags pkcs1)(value %b))" : "(data (flags raw)(value %b))",
                      static_cast<int>(inLen), in) != 0)
    return VOREL_ERR_GENERAL;
  Sexp d(data);
  if (gcry_pk_encrypt(&result, data, key->pub) != 0) return pkcs1 ? VOREL_ERR_GENERAL : VOREL_ERR_DATA_LEN;
  Sexp r(result);
  Mpi a = token_mpi(result, "a");
  return a && mpi_to(a.get(), out, key->k) ? VOREL_OK : VOREL_ERR_GENERAL;
}

int rsa_decrypt(const Key* key, bool pkcs1, const unsigned char* in, std::size_t inLen, unsigned char* out,
                std::size_t* outLen) {
  gcry_sexp_t data = nullptr, result = nullptr;
  if (gcry_sexp_build(&data, nullptr,
                      pkcs1 ? "(enc-val (flags pkcs1)(rsa (a %b)))" : "(enc-val (flags raw)(rsa (a %b)))",
                      static_cast<int>(inLen), in) != 0)
    return VOREL_ERR_GENERAL;
  Sexp d(data);
  if (gcry_pk_decrypt(&result, data, key->sec) != 0) return pkcs1 ? VOREL_ERR_DECRYPT : VOREL_ERR_DATA_LEN;
  Sexp r(result);
  if (!pkcs1) {
    Mpi v = token_mpi(result, "value");
    if (!v || !mpi_to(v.get(), out, key->k)) return VOREL_ERR_GENERAL;
    *outLen = key->k;
    return VOREL_OK;
  }
  SecureBytes value;
  if (!token_bytes(result, "value", value) || value.size() > key->k) return VOREL_ERR_GENERAL;
  if (!value.empty()) std::memcpy(out, value.data(), value.size());
  *outLen = value.size();
  return VOREL_OK;
}

int rsa_sign_pkcs1(const Key* key, const unsigned char* in, std::size_t inLen, unsigned char* out) {
  gcry_sexp_t data = nullptr, result = nullptr;
  if (gcry_sexp_build(&data, nullptr, "(data (flags pkcs1-raw)(value %b))", static_cast<int>(inLen), in) != 0)
    return VOREL_ERR_GENERAL;
  Sexp d(data);
  if (gcry_pk_sign(&result, data, key->sec) != 0) return VOREL_ERR_GENERAL;
  Sexp r(result);
  Mpi s = token_mpi(result, "s");
  return s && mpi_to(s.get(), out, key->k) ? VOREL_OK : VOREL_ERR_GENERAL;
}

int rsa_verify_pkcs1(const Key* key, const unsigned char* in, std::size_t inLen, const unsigned char* sig) {
  gcry_sexp_t data = nullptr, s = nullptr;
  if (gcry_sexp_build(&data, nullptr, "(data (flags pkcs1-raw)(value %b))", static_cast<int>(inLen), in) != 0)
    return VOREL_ERR_GENERAL;
  Sexp d(data);
  if (gcry_sexp_build(&s, nullptr, "(sig-val (rsa (s %b)))", static_cast<int>(key->k), sig) != 0)
    return VOREL_ERR_GENERAL;
  Sexp sg(s);
  return gcry_pk_verify(s, data, key->pub) == 0 ? VOREL_OK : VOREL_ERR_BAD_SIGNATURE;
}

// ---- SM2 ----

int sm2_sign(const Key* key, const unsigned char* e, unsigned char* r, unsigned char* s) {
  gcry_sexp_t data = nullptr, result = nullptr;
  if (gcry_sexp_build(&data, nullptr, "(data (flags sm2 rfc6979)(hash sm3 %b))", 32, e) != 0) return VOREL_ERR_GENERAL;
  Sexp d(data);
  if (gcry_pk_sign(&result, data, key->sec) != 0) return VOREL_ERR_GENERAL;
  Sexp res(result);
  Mpi rm = token_mpi(result, "r"), sm = token_mpi(result, "s");
  return rm && sm && mpi_to(rm.get(), r, 32) && mpi_to(sm.get(), s, 32) ? VOREL_OK : VOREL_ERR_GENERAL;
}

int sm2_verify(const Key* key, const unsigned char* e, const unsigned char* r, const unsigned char* s) {
  gcry_sexp_t data = nullptr, sig = nullptr;
  if (gcry_sexp_build(&data, nullptr, "(data (flags sm2)(hash sm3 %b))", 32, e) != 0) return VOREL_ERR_GENERAL;
  Sexp d(data);
  if (gcry_sexp_build(&sig, nullptr, "(sig-val (sm2 (r %b)(s %b)))", 32, r, 32, s) != 0) return VOREL_ERR_GENERAL;
  Sexp sg(sig);
  return gcry_pk_verify(sig, data, key->pub) == 0 ? VOREL_OK : VOREL_ERR_BAD_SIGNATURE;
}

int sm2_encrypt(const Key* key, const unsigned char* m, std::size_t len, unsigned char* out) {
  EcCtx ctx = curve_ctx();
  if (!ctx) return VOREL_ERR_GENERAL;
  Mpi n(gcry_mpi_ec_get_mpi("n", ctx.get(), 1)), k(gcry_mpi_snew(256));
  PointPtr g(gcry_mpi_ec_get_point("g", ctx.get(), 1)), pb = point_of(key->q);
  PointPtr c1(gcry_mpi_point_new(0)), s(gcry_mpi_point_new(0));
  if (!n || !g || !pb || !c1 || !s) return VOREL_ERR_GENERAL;
  unsigned char x2y2[64];
  unsigned char* c2 = out + 65;
  // A key stream t of all zeros sends us back for another k (the standard's step A5).
  for (int attempt = 0; attempt < 64; ++attempt) {
    do {
      gcry_mpi_randomize(k.get(), 256, GCRY_STRONG_RANDOM);
    } while (gcry_mpi_cmp_ui(k.get(), 0) == 0 || gcry_mpi_cmp(k.get(), n.get()) >= 0);
    gcry_mpi_ec_mul(c1.get(), k.get(), g.get(), ctx.get());
    gcry_mpi_ec_mul(s.get(), k.get(), pb.get(), ctx.get());
    out[0] = 0x04;
    if (!affine(c1.get(), ctx.get(), out + 1, false) || !affine(s.get(), ctx.get(), x2y2, true)) break;
    if (!kdf(x2y2, sizeof x2y2, c2, len)) continue;
    for (std::size_t i = 0; i < len; ++i) c2[i] ^= m[i];
    c3_of(x2y2, m, len, out + 65 + len);
    crypto::wipe(x2y2, sizeof x2y2);
    return VOREL_OK;
  }
  crypto::wipe(x2y2, sizeof x2y2);
  return VOREL_ERR_GENERAL;
}

int sm2_decrypt(const Key* key, const unsigned char* c, std::size_t len, unsigned char* out) {
  if (!key->d) return VOREL_ERR_GENERAL;
  std::size_t mLen = len - 97;
  EcCtx ctx = curve_ctx();
  if (!ctx) return VOREL_ERR_GENERAL;
  PointPtr c1 = point_of(c), s(gcry_mpi_point_new(0));
  if (!c1 || !s) return VOREL_ERR_GENERAL;
  // C1 must be a point of the curve (the cofactor is 1, so that also excludes small subgroups).
  if (c[0] != 0x04 || !gcry_mpi_ec_curve_point(c1.get(), ctx.get())) return VOREL_ERR_DECRYPT;
  gcry_mpi_ec_mul(s.get(), key->d, c1.get(), ctx.get());
  unsigned char x2y2[64];
  unsigned char c3[32];
  int rc = VOREL_ERR_DECRYPT;
  if (affine(s.get(), ctx.get(), x2y2, true) && kdf(x2y2, sizeof x2y2, out, mLen)) {
    for (std::size_t i = 0; i < mLen; ++i) out[i] ^= c[65 + i];
    c3_of(x2y2, out, mLen, c3);
    if (crypto::equal_ct(c3, c + 65 + mLen, 32)) rc = VOREL_OK;
  }
  crypto::wipe(x2y2, sizeof x2y2);
  if (rc != VOREL_OK) crypto::wipe(out, mLen);
  return rc;
}

}  // namespace vorel::VOREL_BACKEND_NS
