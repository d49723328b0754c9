// Helpers of the crypto-library suites.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "crypto/der.h"
#include "vorel/vorel_crypto.h"

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

// A buffer the library handed out.
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

// Owners of library objects.
struct Pair {
  VOREL_KEYPAIR* p = nullptr;
  ~Pair() { VorelPKICryptoFreeKeypair(p); }
};
struct Pub {
  VOREL_PUBLICKEY* p = nullptr;
  ~Pub() { VorelPKICryptoFreePublicKey(p); }
};
struct Dev {
  VOREL_DEVICE* p = nullptr;
  ~Dev() { VorelPKICryptoFreeDevice(p); }
};
struct DevList {
  VOREL_DEVICE_LIST* p = nullptr;
  ~DevList() { VorelPKICryptoFreeDevices(p); }
};
struct Text {
  char* p = nullptr;
  ~Text() { VorelPKICryptoFreeMemory(p); }
};

class Device : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(VorelPKICryptoGetPseudoDevice(&device_), VOREL_OK); }
  void TearDown() override { VorelPKICryptoFreeDevice(device_); }

  VOREL_PUBLICKEY* public_of(VOREL_KEYPAIR* kp) { return VorelPKICryptoGetPublicKeyFromKeypair(kp); }

  // Imports DER as a key pair / public key, failing the test on refusal.
  VOREL_KEYPAIR* import_pair(const Bytes& der, int type = VOREL_KEYPAIR_SIGN) {
    VOREL_KEYPAIR* kp = nullptr;
    EXPECT_EQ(VorelPKICryptoImportKeypair(device_, der.data(), der.size(), type, &kp), VOREL_OK);
    return kp;
  }
  VOREL_PUBLICKEY* import_public(const Bytes& der) {
    VOREL_PUBLICKEY* pub = nullptr;
    EXPECT_EQ(VorelPKICryptoImportPublicKey(device_, der.data(), der.size(), &pub), VOREL_OK);
    return pub;
  }

  VOREL_DEVICE* device_ = nullptr;
};

}  // namespace crypto_test
