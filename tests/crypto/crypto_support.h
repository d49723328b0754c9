// Helpers of the crypto-library suites.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "crypto/der.h"
#include "vorel/vorel_crypto.h"
#include "vorel/vorel_ptr.h"

namespace crypto_test {

using Bytes = std::vector<unsigned char>;

inline std::string hex(const unsigned char* p, std::size_t n) {
  static const char digits[] = "0123456789abcdef";
  std::string s;
  for (std::size_t i = 0; i < n; ++i) {
    s += digits[p[i] >> 4];
    s += digits[p[i] & 15];
  }
  return s;
}
inline std::string hex(const Bytes& b) { return hex(b.data(), b.size()); }

inline Bytes unhex(const std::string& s) {
  Bytes b;
  for (std::size_t i = 0; i + 1 < s.size(); i += 2)
    b.push_back(static_cast<unsigned char>(std::stoi(s.substr(i, 2), nullptr, 16)));
  return b;
}

inline Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

// A file written by the openssl command at build time (tests run in the binary folder).
inline Bytes data(const std::string& name) {
  Bytes b;
  std::FILE* f = std::fopen(("testdata/" + name).c_str(), "rb");
  if (!f) {
    ADD_FAILURE() << "missing test data " << name;
    return b;
  }
  unsigned char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) b.insert(b.end(), buf, buf + n);
  std::fclose(f);
  return b;
}

// A buffer the library hands out with its length: pass &o.p, &o.n. (The owner of vorel_ptr.h
// would need a separate length at every call.)
struct Out {
  unsigned char* p = nullptr;
  std::size_t n = 0;
  Out() = default;
  Out(const Out&) = delete;
  ~Out() { VorelPKICryptoFreeMemory(p); }
  Bytes bytes() const { return p ? Bytes(p, p + n) : Bytes(); }
};

// The 32-byte private value inside an SM2 PKCS#8 key pair as the library writes it.
inline bool sm2_private_value(const unsigned char* pkcs8, std::size_t n, unsigned char* d) {
  using namespace vorel::crypto::der;
  Reader top(pkcs8, n), seq, alg, inner, ec;
  unsigned version;
  const unsigned char *body, *dp;
  std::size_t bodyLen, dLen;
  if (!top.next(kSequence, seq) || !seq.small_integer(&version) || !seq.next(kSequence, alg) ||
      !seq.next(kOctetString, &body, &bodyLen))
    return false;
  inner = Reader(body, bodyLen);
  if (!inner.next(kSequence, ec) || !ec.small_integer(&version) || !ec.next(kOctetString, &dp, &dLen) || dLen != 32)
    return false;
  std::memcpy(d, dp, 32);
  return true;
}

// Owners of library objects; an out-parameter is filled through vorel::out(owner).
using Pair = vorel::UniquePtr<VOREL_KEYPAIR>;
using Pub = vorel::UniquePtr<VOREL_PUBLICKEY>;
using Dev = vorel::UniquePtr<VOREL_DEVICE>;
using DevList = vorel::UniquePtr<VOREL_DEVICE_LIST>;
using Text = vorel::UniquePtr<char>;
using Cert = vorel::UniquePtr<VOREL_CERT>;
using Cipher = vorel::UniquePtr<VOREL_CIPHER>;
using Hash = vorel::UniquePtr<VOREL_HASH>;

// The key operations with the buffer they hand out; each returns the library's result.
inline int sign(VOREL_KEYPAIR* kp, int mech, const Bytes& in, Bytes* sig = nullptr) {
  Out o;
  int rc = VorelPKICryptoSignHash(kp, mech, nullptr, in.data(), in.size(), &o.p, &o.n);
  if (sig) *sig = o.bytes();
  return rc;
}
inline int verify(VOREL_PUBLICKEY* pub, int mech, const Bytes& in, const Bytes& sig) {
  return VorelPKICryptoVerifyHash(pub, mech, nullptr, in.data(), in.size(), sig.data(), sig.size());
}
inline int encrypt(VOREL_PUBLICKEY* pub, int mech, const Bytes& in, Bytes* result = nullptr) {
  Out o;
  int rc = VorelPKICryptoPublicKeyEncrypt(pub, mech, nullptr, in.data(), in.size(), &o.p, &o.n);
  if (result) *result = o.bytes();
  return rc;
}
inline int decrypt(VOREL_KEYPAIR* kp, int mech, const Bytes& in, Bytes* result = nullptr) {
  Out o;
  int rc = VorelPKICryptoPrivateKeyDecrypt(kp, mech, nullptr, in.data(), in.size(), &o.p, &o.n);
  if (result) *result = o.bytes();
  return rc;
}
inline Pub public_of(const Pair& kp) { return Pub(VorelPKICryptoGetPublicKeyFromKeypair(kp.get())); }
// The DER encoding of a certificate or public key.
inline Bytes der_of(VOREL_CERT* cert) {
  Out o;
  EXPECT_EQ(VorelPKICertGetCertEncode(cert, VOREL_CERT_ENCODING_DER, &o.p, &o.n), VOREL_OK);
  return o.bytes();
}
inline Bytes der_of(VOREL_PUBLICKEY* pub) {
  Out o;
  EXPECT_EQ(VorelPKICryptoExportPublicKey(pub, &o.p, &o.n), VOREL_OK);
  return o.bytes();
}
inline Cert cert_of(const Bytes& der) { return Cert(VorelPKICertNewCert(der.data(), der.size())); }

class Device : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(VorelPKICryptoGetPseudoDevice(vorel::out(owner_)), VOREL_OK);
    device_ = owner_.get();
  }

  // Imports DER as a key pair / public key, failing the test on refusal.
  Pair import_pair(const Bytes& der, int type = VOREL_KEYPAIR_SIGN) {
    Pair kp;
    EXPECT_EQ(VorelPKICryptoImportKeypair(device_, der.data(), der.size(), type, vorel::out(kp)), VOREL_OK);
    return kp;
  }
  Pub import_public(const Bytes& der) {
    Pub pub;
    EXPECT_EQ(VorelPKICryptoImportPublicKey(device_, der.data(), der.size(), vorel::out(pub)), VOREL_OK);
    return pub;
  }

  Dev owner_;
  VOREL_DEVICE* device_ = nullptr;
};

}  // namespace crypto_test
