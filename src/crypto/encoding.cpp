// Key, key-pair and signature encodings: SubjectPublicKeyInfo, PKCS#8 (and PKCS#1 / SEC1 on
// input), SEQUENCE { r, s }. Written once, above the seam; every decoder is strict DER and
// refuses trailing bytes.
#include <cstring>

#include "crypto/der.h"
#include "crypto/internal.h"
#include "vorel/vorel_crypto.h"

namespace vorel::crypto {

namespace {

using der::Reader;
using der::Writer;

// The number as bytes without leading zeros.
void set_number(SecureBytes& dst, const unsigned char* p, std::size_t n) { dst.assign(p, p + n); }

void write_rsa_algorithm(Writer& w) {
  w.sequence([](Writer& alg) {
    alg.oid(der::kOidRsaEncryption);
    alg.null();
  });
}

void write_sm2_algorithm(Writer& w) {
  w.sequence([](Writer& alg) {
    alg.oid(der::kOidEcPublicKey);
    alg.oid(der::kOidSm2Curve);
  });
}

// PrivateKeyInfo ::= SEQUENCE { 0, AlgorithmIdentifier, OCTET STRING key }
void write_pkcs8(void (*algorithm)(Writer&), const SecureBytes& key, SecureBytes& out) {
  Writer w;
  w.sequence([&](Writer& p8) {
    p8.small_integer(0);
    algorithm(p8);
    p8.octet_string(key.data(), key.size());
  });
  out.swap(w.bytes());
}

// AlgorithmIdentifier: the key algorithm, and for EC that the curve is SM2.
int read_algorithm(Reader& outer, int* alg) {
  Reader a;
  der::Oid oid{};
  if (!outer.next(der::kSequence, a) || !a.oid(&oid)) return VOREL_ERR_BAD_ENCODING;
  if (oid == der::kOidRsaEncryption) {
    // Parameters NULL, or absent as some encoders leave them.
    if (a.peek(der::kNull)) {
      const unsigned char* p;
      std::size_t n;
      if (!a.next(der::kNull, &p, &n) || n != 0) return VOREL_ERR_BAD_ENCODING;
    }
    if (!a.empty()) return VOREL_ERR_BAD_ENCODING;
    *alg = VOREL_ALG_RSA;
    return VOREL_OK;
  }
  if (oid == der::kOidEcPublicKey) {
    der::Oid curve{};
    if (!a.oid(&curve) || !a.empty()) return VOREL_ERR_BAD_ENCODING;
    if (!(curve == der::kOidSm2Curve)) return VOREL_ERR_NOT_SUPPORTED;
    *alg = VOREL_ALG_SM2;
    return VOREL_OK;
  }
  return VOREL_ERR_NOT_SUPPORTED;
}

// RSAPublicKey ::= SEQUENCE { n, e }
int read_rsa_public(Reader& r, DecodedKey& key) {
  Reader seq;
  const unsigned char *n, *e;
  std::size_t nLen, eLen;
  if (!r.next(der::kSequence, seq) || !seq.integer(&n, &nLen) || !seq.integer(&e, &eLen) || !seq.empty() || !r.empty())
    return VOREL_ERR_BAD_ENCODING;
  key.alg = VOREL_ALG_RSA;
  set_number(key.rsa.n, n, nLen);
  set_number(key.rsa.e, e, eLen);
  return VOREL_OK;
}

int read_point(const unsigned char* p, std::size_t n, DecodedKey& key) {
  if (n == 0) return VOREL_ERR_BAD_ENCODING;
  if (p[0] != 0x04) return VOREL_ERR_NOT_SUPPORTED;  // compressed points are not taken
  if (n != 65) return VOREL_ERR_BAD_ENCODING;
  std::memcpy(key.q, p, 65);
  key.hasQ = true;
  return VOREL_OK;
}

// RSAPrivateKey ::= SEQUENCE { 0, n, e, d, p, q, dp, dq, qinv }
int read_rsa_private(Reader& r, DecodedKey& key) {
  Reader seq;
  unsigned version = 0;
  if (!r.next(der::kSequence, seq) || !r.empty() || !seq.small_integer(&version)) return VOREL_ERR_BAD_ENCODING;
  if (version != 0) return VOREL_ERR_NOT_SUPPORTED;  // multi-prime
  SecureBytes* fields[] = {&key.rsa.n, &key.rsa.e,  &key.rsa.d,  &key.rsa.p,
                           &key.rsa.q, &key.rsa.dp, &key.rsa.dq, &key.rsa.qinv};
  for (SecureBytes* f : fields) {
    const unsigned char* p;
    std::size_t n;
    if (!seq.integer(&p, &n)) return VOREL_ERR_BAD_ENCODING;
    set_number(*f, p, n);
  }
  if (!seq.empty()) return VOREL_ERR_BAD_ENCODING;
  key.alg = VOREL_ALG_RSA;
  return VOREL_OK;
}

// ECPrivateKey ::= SEQUENCE { 1, OCTET STRING d, [0] curve OPTIONAL, [1] BIT STRING point OPTIONAL }
int read_sm2_private(Reader& r, DecodedKey& key) {
  Reader seq;
  unsigned version = 0;
  const unsigned char* d;
  std::size_t dLen;
  if (!r.next(der::kSequence, seq) || !r.empty() || !seq.small_integer(&version) || version != 1 ||
      !seq.next(der::kOctetString, &d, &dLen) || !right_align(d, dLen, key.d, 32))
    return VOREL_ERR_BAD_ENCODING;
  key.hasD = true;
  if (seq.peek(der::kContext0)) {
    Reader params;
    der::Oid curve{};
    if (!seq.next(der::kContext0, params) || !params.oid(&curve) || !params.empty()) return VOREL_ERR_BAD_ENCODING;
    if (!(curve == der::kOidSm2Curve)) return VOREL_ERR_NOT_SUPPORTED;
  }
  if (seq.peek(der::kContext1)) {
    Reader pub;
    const unsigned char* p;
    std::size_t n;
    if (!seq.next(der::kContext1, pub) || !pub.bit_string(&p, &n) || !pub.empty()) return VOREL_ERR_BAD_ENCODING;
    int rc = read_point(p, n, key);
    if (rc != VOREL_OK) return rc;
  }
  if (!seq.empty()) return VOREL_ERR_BAD_ENCODING;
  key.alg = VOREL_ALG_SM2;
  return VOREL_OK;
}

}  // namespace

int decode_public(const unsigned char* der, std::size_t len, DecodedKey& key) {
  if (!der || len == 0) return VOREL_ERR_PARAM;
  Reader top(der, len), spki;
  if (!top.next(der::kSequence, spki) || !top.empty()) return VOREL_ERR_BAD_ENCODING;
  if (spki.peek(der::kInteger)) {
    Reader bare(der, len);
    return read_rsa_public(bare, key);
  }
  int alg = 0;
  int rc = read_algorithm(spki, &alg);
  if (rc != VOREL_OK) return rc;
  const unsigned char* bits;
  std::size_t bitsLen;
  if (!spki.bit_string(&bits, &bitsLen) || !spki.empty()) return VOREL_ERR_BAD_ENCODING;
  if (alg == VOREL_ALG_RSA) {
    Reader inner(bits, bitsLen);
    return read_rsa_public(inner, key);
  }
  key.alg = VOREL_ALG_SM2;
  return read_point(bits, bitsLen, key);
}

int decode_private(const unsigned char* der, std::size_t len, DecodedKey& key) {
  if (!der || len == 0) return VOREL_ERR_PARAM;
  Reader top(der, len), seq;
  if (!top.next(der::kSequence, seq) || !top.empty()) return VOREL_ERR_BAD_ENCODING;
  unsigned version = 0;
  if (!seq.small_integer(&version)) return VOREL_ERR_BAD_ENCODING;
  if (!seq.peek(der::kSequence)) {
    // Not PKCS#8: a bare PKCS#1 or SEC1 key.
    Reader bare(der, len);
    if (version == 1) return read_sm2_private(bare, key);
    return read_rsa_private(bare, key);
  }
  if (version > 1) return VOREL_ERR_NOT_SUPPORTED;
  int alg = 0;
  int rc = read_algorithm(seq, &alg);
  if (rc != VOREL_OK) return rc;
  const unsigned char* inner;
  std::size_t innerLen;
  if (!seq.next(der::kOctetString, &inner, &innerLen)) return VOREL_ERR_BAD_ENCODING;
  // Attributes [0] and the public key [1] of PKCS#8 v2 are not needed.
  while (!seq.empty()) {
    const unsigned char* p;
    std::size_t n;
    if (!seq.next(der::kContext0, &p, &n) && !seq.next(0x81, &p, &n) && !seq.next(der::kContext1, &p, &n))
      return VOREL_ERR_BAD_ENCODING;
  }
  Reader body(inner, innerLen);
  rc = alg == VOREL_ALG_RSA ? read_rsa_private(body, key) : read_sm2_private(body, key);
  if (rc == VOREL_OK && key.alg != alg) return VOREL_ERR_BAD_ENCODING;
  return rc;
}

void encode_rsa_public(const SecureBytes& n, const SecureBytes& e, SecureBytes& out) {
  Writer inner;
  inner.sequence([&](Writer& seq) {
    seq.integer(n.data(), n.size());
    seq.integer(e.data(), e.size());
  });
  Writer w;
  w.sequence([&](Writer& spki) {
    write_rsa_algorithm(spki);
    spki.bit_string(inner.bytes().data(), inner.bytes().size());
  });
  out.swap(w.bytes());
}

void encode_sm2_public(const unsigned char* q, SecureBytes& out) {
  Writer w;
  w.sequence([&](Writer& spki) {
    write_sm2_algorithm(spki);
    spki.bit_string(q, 65);
  });
  out.swap(w.bytes());
}

void encode_rsa_private(const backend::RsaNumbers& k, SecureBytes& out) {
  Writer inner;
  inner.sequence([&](Writer& seq) {
    seq.small_integer(0);
    for (const SecureBytes* f : {&k.n, &k.e, &k.d, &k.p, &k.q, &k.dp, &k.dq, &k.qinv})
      seq.integer(f->data(), f->size());
  });
  write_pkcs8(write_rsa_algorithm, inner.bytes(), out);
}

void encode_sm2_private(const unsigned char* d, const unsigned char* q, SecureBytes& out) {
  // As OpenSSL writes it: the curve in the outer algorithm, the point in [1].
  Writer inner;
  inner.sequence([&](Writer& seq) {
    seq.small_integer(1);
    seq.octet_string(d, 32);
    if (q) seq.constructed(der::kContext1, [&](Writer& pub) { pub.bit_string(q, 65); });
  });
  write_pkcs8(write_sm2_algorithm, inner.bytes(), out);
}

namespace {
int hand_out(const SecureBytes& b, unsigned char** out, std::size_t* outLen) {
  return crypto::hand_out(b.data(), b.size(), out, outLen);
}

int hand_out_number(const SecureBytes& b, unsigned char** out, std::size_t* outLen) {
  // Zero is one zero byte rather than nothing.
  static const unsigned char zero = 0;
  return b.empty() ? crypto::hand_out(&zero, 1, out, outLen) : hand_out(b, out, outLen);
}

// x or y of a point: at most 32 significant bytes, right-aligned into 32.
bool coordinate(const unsigned char* p, std::size_t n, unsigned char* out) {
  return p && n > 0 && right_align(p, n, out, 32);
}
}  // namespace

}  // namespace vorel::crypto

using namespace vorel::crypto;

extern "C" {

int VorelPKICryptoEncodeECCPubKey(int curve, const unsigned char* x, size_t xLen, const unsigned char* y, size_t yLen,
                                  unsigned char** der, size_t* derLen) {
  return guard([&] {
    if (!der || !derLen) return fail(VOREL_ERR_PARAM);
    if (curve != VOREL_CURVE_SM2) return fail(VOREL_ERR_NOT_SUPPORTED);
    unsigned char q[65] = {0x04};
    if (!coordinate(x, xLen, q + 1) || !coordinate(y, yLen, q + 33)) return fail(VOREL_ERR_PARAM);
    SecureBytes out;
    encode_sm2_public(q, out);
    return hand_out(out, der, derLen);
  });
}

int VorelPKICryptoDecodeECCPubKey(const unsigned char* der, size_t derLen, int* curve, unsigned char** x, size_t* xLen,
                                  unsigned char** y, size_t* yLen) {
  return guard([&] {
    if (!der || !curve || !x || !xLen || !y || !yLen) return fail(VOREL_ERR_PARAM);
    DecodedKey key;
    int rc = decode_public(der, derLen, key);
    if (rc != VOREL_OK) return fail(rc);
    if (key.alg != VOREL_ALG_SM2) return fail(VOREL_ERR_NOT_SUPPORTED);
    if (hand_out(key.q + 1, 32, x, xLen) != VOREL_OK) return fail(VOREL_ERR_MEMORY);
    if (hand_out(key.q + 33, 32, y, yLen) != VOREL_OK) {
      VorelPKICryptoFreeMemory(*x);
      *x = nullptr;
      return fail(VOREL_ERR_MEMORY);
    }
    *curve = VOREL_CURVE_SM2;
    return ok();
  });
}

int VorelPKICryptoEncodeECCKeyPair(int curve, const unsigned char* x, size_t xLen, const unsigned char* y, size_t yLen,
                                   const unsigned char* d, size_t dLen, unsigned char** der, size_t* derLen) {
  return guard([&] {
    if (!der || !derLen) return fail(VOREL_ERR_PARAM);
    if (curve != VOREL_CURVE_SM2) return fail(VOREL_ERR_NOT_SUPPORTED);
    unsigned char dd[32];
    if (!d || dLen == 0 || !right_align(d, dLen, dd, 32)) return fail(VOREL_ERR_PARAM);
    unsigned char q[65] = {0x04};
    bool withPoint = x || y;
    if (withPoint && (!coordinate(x, xLen, q + 1) || !coordinate(y, yLen, q + 33))) {
      wipe(dd, sizeof dd);
      return fail(VOREL_ERR_PARAM);
    }
    SecureBytes out;
    encode_sm2_private(dd, withPoint ? q : nullptr, out);
    wipe(dd, sizeof dd);
    return hand_out(out, der, derLen);
  });
}

int VorelPKICryptoEncodeECCSignature(const unsigned char* r, size_t rLen, const unsigned char* s, size_t sLen,
                                     unsigned char** der, size_t* derLen) {
  return guard([&] {
    if (!r || !s || rLen == 0 || sLen == 0 || !der || !derLen) return fail(VOREL_ERR_PARAM);
    unsigned char rr[32], ss[32];
    if (!right_align(r, rLen, rr, 32) || !right_align(s, sLen, ss, 32)) return fail(VOREL_ERR_PARAM);
    der::Writer w;
    w.sequence([&](der::Writer& seq) {
      seq.integer(rr, 32);
      seq.integer(ss, 32);
    });
    return hand_out(w.bytes(), der, derLen);
  });
}

int VorelPKICryptoDecodeECCSignature(const unsigned char* der, size_t derLen, unsigned char** r, size_t* rLen,
                                     unsigned char** s, size_t* sLen) {
  return guard([&] {
    if (!der || !r || !rLen || !s || !sLen) return fail(VOREL_ERR_PARAM);
    der::Reader top(der, derLen), seq;
    const unsigned char *rp, *sp;
    std::size_t rn, sn;
    if (!top.next(der::kSequence, seq) || !top.empty() || !seq.integer(&rp, &rn) || !seq.integer(&sp, &sn) ||
        !seq.empty() || rn == 0 || sn == 0 || rn > 32 || sn > 32)
      return fail(VOREL_ERR_BAD_ENCODING);
    if (hand_out(rp, rn, r, rLen) != VOREL_OK) return fail(VOREL_ERR_MEMORY);
    if (hand_out(sp, sn, s, sLen) != VOREL_OK) {
      VorelPKICryptoFreeMemory(*r);
      *r = nullptr;
      return fail(VOREL_ERR_MEMORY);
    }
    return ok();
  });
}

int VorelPKICryptoEncodeSM2Cipher(const unsigned char* raw, size_t rawLen, unsigned char** der, size_t* derLen) {
  return guard([&] {
    if (!raw || !der || !derLen) return fail(VOREL_ERR_PARAM);
    if (rawLen < 98 || raw[0] != 0x04) return fail(VOREL_ERR_DATA_LEN);
    std::size_t c2Len = rawLen - 97;
    der::Writer w;
    w.sequence([&](der::Writer& seq) {
      seq.integer(raw + 1, 32);
      seq.integer(raw + 33, 32);
      seq.octet_string(raw + 65 + c2Len, 32);
      seq.octet_string(raw + 65, c2Len);
    });
    return hand_out(w.bytes(), der, derLen);
  });
}

int VorelPKICryptoDecodeSM2Cipher(const unsigned char* der, size_t derLen, unsigned char** raw, size_t* rawLen) {
  return guard([&] {
    if (!der || !raw || !rawLen) return fail(VOREL_ERR_PARAM);
    der::Reader top(der, derLen), seq;
    const unsigned char *x, *y, *c3, *c2;
    std::size_t xn, yn, c3n, c2n;
    if (!top.next(der::kSequence, seq) || !top.empty() || !seq.integer(&x, &xn) || !seq.integer(&y, &yn) ||
        !seq.next(der::kOctetString, &c3, &c3n) || !seq.next(der::kOctetString, &c2, &c2n) || !seq.empty() ||
        c3n != 32 || c2n == 0 || c2n > SIZE_MAX - 97)
      return fail(VOREL_ERR_BAD_ENCODING);
    SecureBytes out(97 + c2n);
    out[0] = 0x04;
    if (!right_align(x, xn, out.data() + 1, 32) || !right_align(y, yn, out.data() + 33, 32))
      return fail(VOREL_ERR_BAD_ENCODING);
    std::memcpy(out.data() + 65, c2, c2n);
    std::memcpy(out.data() + 65 + c2n, c3, 32);
    return hand_out(out, raw, rawLen);
  });
}

int VorelPKICryptoEncodeRSAPubKey(const unsigned char* n, size_t nLen, const unsigned char* e, size_t eLen,
                                  unsigned char** der, size_t* derLen) {
  return guard([&] {
    if (!n || !e || nLen == 0 || eLen == 0 || !der || !derLen) return fail(VOREL_ERR_PARAM);
    SecureBytes out;
    encode_rsa_public(strip_zeros(n, nLen), strip_zeros(e, eLen), out);
    return hand_out(out, der, derLen);
  });
}

int VorelPKICryptoDecodeRSAPubKey(const unsigned char* der, size_t derLen, unsigned char** n, size_t* nLen,
                                  unsigned char** e, size_t* eLen) {
  return guard([&] {
    if (!der || !n || !nLen || !e || !eLen) return fail(VOREL_ERR_PARAM);
    DecodedKey key;
    int rc = decode_public(der, derLen, key);
    if (rc != VOREL_OK) return fail(rc);
    if (key.alg != VOREL_ALG_RSA) return fail(VOREL_ERR_NOT_SUPPORTED);
    if (hand_out_number(key.rsa.n, n, nLen) != VOREL_OK) return fail(VOREL_ERR_MEMORY);
    if (hand_out_number(key.rsa.e, e, eLen) != VOREL_OK) {
      VorelPKICryptoFreeMemory(*n);
      *n = nullptr;
      return fail(VOREL_ERR_MEMORY);
    }
    return ok();
  });
}

int VorelPKICryptoEncodeRSAKeyPair(const unsigned char* const numbers[VOREL_RSA_NUMBERS],
                                   const size_t lengths[VOREL_RSA_NUMBERS], unsigned char** der, size_t* derLen) {
  return guard([&] {
    if (!numbers || !lengths || !der || !derLen) return fail(VOREL_ERR_PARAM);
    for (int i = 0; i < VOREL_RSA_NUMBERS; ++i)
      if (!numbers[i] || lengths[i] == 0) return fail(VOREL_ERR_PARAM);
    vorel::backend::RsaNumbers k;
    SecureBytes* fields[] = {&k.n, &k.e, &k.d, &k.p, &k.q, &k.dp, &k.dq, &k.qinv};
    for (int i = 0; i < VOREL_RSA_NUMBERS; ++i) *fields[i] = strip_zeros(numbers[i], lengths[i]);
    SecureBytes out;
    encode_rsa_private(k, out);
    return hand_out(out, der, derLen);
  });
}

int VorelPKICryptoDecodeRSAKeyPair(const unsigned char* der, size_t derLen, unsigned char* numbers[VOREL_RSA_NUMBERS],
                                   size_t lengths[VOREL_RSA_NUMBERS]) {
  return guard([&] {
    if (!der || !numbers || !lengths) return fail(VOREL_ERR_PARAM);
    DecodedKey key;
    int rc = decode_private(der, derLen, key);
    if (rc != VOREL_OK) return fail(rc);
    if (key.alg != VOREL_ALG_RSA) return fail(VOREL_ERR_NOT_SUPPORTED);
    const SecureBytes* fields[] = {&key.rsa.n, &key.rsa.e,  &key.rsa.d,  &key.rsa.p,
                                   &key.rsa.q, &key.rsa.dp, &key.rsa.dq, &key.rsa.qinv};
    for (int i = 0; i < VOREL_RSA_NUMBERS; ++i) {
      if (hand_out_number(*fields[i], &numbers[i], &lengths[i]) != VOREL_OK) {
        for (int j = 0; j < i; ++j) {
          wipe(numbers[j], lengths[j]);
          VorelPKICryptoFreeMemory(numbers[j]);
          numbers[j] = nullptr;
        }
        return fail(VOREL_ERR_MEMORY);
      }
    }
    return ok();
  });
}

}  // extern "C"
