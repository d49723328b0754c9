// vorelcrypto on its own; this suite is built once for each cryptographic implementation.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "vorel/vorel_crypto.h"

namespace {

std::string hex(const unsigned char* p, std::size_t n) {
  static const char digits[] = "0123456789abcdef";
  std::string s;
  for (std::size_t i = 0; i < n; ++i) {
    s += digits[p[i] >> 4];
    s += digits[p[i] & 15];
  }
  return s;
}

class Crypto : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(VorelPKICryptoGetPseudoDevice(&device_), VOREL_OK); }
  void TearDown() override { VorelPKICryptoFreeDevice(device_); }

  std::string digest(int alg, const std::vector<std::string>& pieces) {
    VOREL_HASH* hash = nullptr;
    EXPECT_EQ(VorelPKICryptoNewHash(device_, alg, &hash), VOREL_OK);
    for (const std::string& p : pieces) {
      EXPECT_EQ(VorelPKICryptoHashUpdate(hash, reinterpret_cast<const unsigned char*>(p.data()), p.size()), VOREL_OK);
    }
    unsigned char out[64];
    std::size_t len = sizeof out;
    EXPECT_EQ(VorelPKICryptoHashFinal(hash, out, &len), VOREL_OK);
    VorelPKICryptoFreeHash(hash);
    return hex(out, len);
  }

  VOREL_DEVICE* device_ = nullptr;
};

TEST_F(Crypto, ReportsItsImplementation) {
  std::string name = VorelPKICryptoImplementation();
  EXPECT_TRUE(name == "openssl" || name == "libgcrypt") << name;
}

TEST_F(Crypto, RandomBytesDifferAndAnEmptyRequestSucceeds) {
  unsigned char a[32] = {0}, b[32] = {0};
  ASSERT_EQ(VorelPKICryptoGenerateRandom(device_, sizeof a, a), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoGenerateRandom(device_, sizeof b, b), VOREL_OK);
  EXPECT_NE(std::memcmp(a, b, sizeof a), 0);
  EXPECT_EQ(VorelPKICryptoGenerateRandom(device_, 0, nullptr), VOREL_OK);
}

TEST_F(Crypto, FailuresSetTheLastError) {
  unsigned char out[4];
  EXPECT_EQ(VorelPKICryptoGenerateRandom(nullptr, sizeof out, out), VOREL_ERR_PARAM);
  EXPECT_EQ(VorelPKIGetLastError(), VOREL_ERR_PARAM);
  EXPECT_EQ(VorelPKICryptoGenerateRandom(device_, sizeof out, out), VOREL_OK);
  EXPECT_EQ(VorelPKIGetLastError(), VOREL_OK);
  VOREL_HASH* hash = nullptr;
  EXPECT_EQ(VorelPKICryptoNewHash(device_, 0x1234, &hash), VOREL_ERR_NOT_SUPPORTED);
  EXPECT_EQ(hash, nullptr);
}

TEST_F(Crypto, PseudoDeviceReferencesAreCounted) {
  VOREL_DEVICE* again = nullptr;
  VOREL_DEVICE* copy = nullptr;
  ASSERT_EQ(VorelPKICryptoGetPseudoDevice(&again), VOREL_OK);
  EXPECT_EQ(again, device_);
  ASSERT_EQ(VorelPKICryptoDupDevice(again, &copy), VOREL_OK);
  VorelPKICryptoFreeDevice(again);
  VorelPKICryptoFreeDevice(copy);
  unsigned char out[4];
  EXPECT_EQ(VorelPKICryptoGenerateRandom(device_, sizeof out, out), VOREL_OK);
  VorelPKICryptoFreeDevice(nullptr);
}

// Published vectors: GB/T 32905 (SM3), FIPS 180 (SHA-1, SHA-256).
TEST_F(Crypto, DigestsMatchPublishedVectors) {
  std::string abcd16;
  for (int i = 0; i < 16; ++i) abcd16 += "abcd";
  EXPECT_EQ(digest(VOREL_HASH_SM3, {"abc"}), "66c7f0f462eeedd9d1f2d46bdc10e4e24167c4875cf2f7a2297da02b8f4ba8e0");
  EXPECT_EQ(digest(VOREL_HASH_SM3, {abcd16}), "debe9ff92275b8a138604889c18e5a4d6fdb70e5387e5765293dcba39c0c5732");
  EXPECT_EQ(digest(VOREL_HASH_SHA1, {"abc"}), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(digest(VOREL_HASH_SHA256, {"abc"}), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(digest(VOREL_HASH_SHA256, {}), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST_F(Crypto, StreamingInOddPiecesEqualsOneShot) {
  std::string data;
  for (int i = 0; i < 1000; ++i) data += static_cast<char>(i * 31 + 7);
  std::vector<std::string> pieces;
  for (std::size_t at = 0, n = 1; at < data.size(); at += n, n = n * 3 % 17 + 1) pieces.push_back(data.substr(at, n));
  for (int alg : {VOREL_HASH_SM3, VOREL_HASH_SHA1, VOREL_HASH_SHA256}) {
    EXPECT_EQ(digest(alg, pieces), digest(alg, {data})) << alg;
  }
}

TEST_F(Crypto, HashLengthsAndSizeQueries) {
  EXPECT_EQ(VorelPKICryptoGetHashLength(VOREL_HASH_SM3), 32);
  EXPECT_EQ(VorelPKICryptoGetHashLength(VOREL_HASH_SHA1), 20);
  EXPECT_EQ(VorelPKICryptoGetHashLength(VOREL_HASH_SHA256), 32);
  VOREL_HASH* hash = nullptr;
  ASSERT_EQ(VorelPKICryptoNewHash(device_, VOREL_HASH_SM3, &hash), VOREL_OK);
  std::size_t len = 0;
  EXPECT_EQ(VorelPKICryptoHashFinal(hash, nullptr, &len), VOREL_OK);
  EXPECT_EQ(len, 32u);
  unsigned char small[16];
  len = sizeof small;
  EXPECT_EQ(VorelPKICryptoHashFinal(hash, small, &len), VOREL_ERR_BUFFER_SMALL);
  EXPECT_EQ(len, 32u);
  unsigned char out[32];
  EXPECT_EQ(VorelPKICryptoHashFinal(hash, out, &len), VOREL_OK);
  // A finished hash takes no more input and cannot be finished twice.
  EXPECT_EQ(VorelPKICryptoHashUpdate(hash, out, 1), VOREL_ERR_PARAM);
  EXPECT_EQ(VorelPKICryptoHashFinal(hash, out, &len), VOREL_ERR_PARAM);
  VorelPKICryptoFreeHash(hash);
}

}  // namespace
