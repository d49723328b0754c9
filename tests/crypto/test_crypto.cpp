// vorelcrypto devices, digests and ciphers; this suite is built once for each implementation.
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "crypto/backend.h"
#include "crypto/internal.h"
#include "crypto_support.h"
#include "protection_vectors.h"

namespace {

using namespace crypto_test;

class Crypto : public Device {
 protected:
  std::string digest(int alg, const std::vector<std::string>& pieces) {
    Hash hash(VorelPKICryptoNewHash(device_, alg));
    EXPECT_NE(hash, nullptr);
    for (const std::string& p : pieces)
      EXPECT_EQ(VorelPKICryptoHashUpdate(hash.get(), reinterpret_cast<const unsigned char*>(p.data()), p.size()),
                VOREL_OK);
    Out out;
    EXPECT_EQ(VorelPKICryptoHashFinal(hash.get(), &out.p, &out.n), VOREL_OK);
    EXPECT_EQ(static_cast<int>(out.n), VorelPKICryptoGetHashLength(hash.get()));
    return hex(out.bytes());
  }

  // Runs data through a new cipher in pieces of the given sizes (cycled), then Final.
  int crypt(int alg, bool encrypt, int padding, const Bytes& key, const Bytes& iv, const Bytes& data, Bytes& result,
            std::vector<std::size_t> pieces = {}) {
    Cipher c(VorelPKICryptoNewCipher(device_, encrypt ? 1 : 0, alg, key.data(), key.size(),
                                     iv.empty() ? nullptr : iv.data()));
    if (!c) return VorelPKIGetLastError();
    EXPECT_EQ(VorelPKICryptoCipherSetPadding(c.get(), padding), VOREL_OK);
    if (pieces.empty()) pieces.push_back(data.size() + 1);
    result.clear();
    int rc = VOREL_OK;
    for (std::size_t pos = 0, i = 0; pos < data.size() && rc == VOREL_OK; ++i) {
      std::size_t n = std::min(pieces[i % pieces.size()], data.size() - pos);
      Out out;
      rc = VorelPKICryptoCipherUpdate(c.get(), data.data() + pos, n, &out.p, &out.n);
      result.insert(result.end(), out.p, out.p + out.n);
      pos += n;
    }
    Out last;
    if (rc == VOREL_OK) rc = VorelPKICryptoCipherFinal(c.get(), &last.p, &last.n);
    EXPECT_LE(last.n, 16u);
    result.insert(result.end(), last.p, last.p + last.n);
    return rc;
  }
};

TEST_F(Crypto, DeviceRandomAndTheLastError) {
  std::string name = VorelPKICryptoImplementation();
  EXPECT_TRUE(name == "openssl" || name == "libgcrypt") << name;
  // The pseudo device is one object, counted by reference.
  VOREL_DEVICE *again = nullptr, *copy = nullptr;
  ASSERT_EQ(VorelPKICryptoGetPseudoDevice(&again), VOREL_OK);
  EXPECT_EQ(again, device_);
  ASSERT_EQ(VorelPKICryptoDupDevice(again, &copy), VOREL_OK);
  VorelPKICryptoFreeDevice(again);
  VorelPKICryptoFreeDevice(copy);
  VorelPKICryptoFreeDevice(nullptr);

  unsigned char a[32] = {0}, b[32] = {0};
  ASSERT_EQ(VorelPKICryptoGenerateRandom(device_, sizeof a, a), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoGenerateRandom(device_, sizeof b, b), VOREL_OK);
  EXPECT_NE(std::memcmp(a, b, sizeof a), 0);
  EXPECT_EQ(VorelPKICryptoGenerateRandom(device_, 0, nullptr), VOREL_OK);

  EXPECT_EQ(VorelPKICryptoGenerateRandom(nullptr, sizeof a, a), VOREL_ERR_PARAM);
  EXPECT_EQ(VorelPKIGetLastError(), VOREL_ERR_PARAM);
  EXPECT_EQ(VorelPKICryptoGenerateRandom(device_, sizeof a, a), VOREL_OK);
  EXPECT_EQ(VorelPKIGetLastError(), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoNewHash(device_, 0x1234), nullptr);
  EXPECT_EQ(VorelPKIGetLastError(), VOREL_ERR_NOT_SUPPORTED);
  EXPECT_EQ(VorelPKICryptoGetHashLength(nullptr), -1);
  // Every function's body runs under the one guard: an exception becomes a code, never a throw into C.
  EXPECT_EQ(vorel::crypto::guard([]() -> int { throw std::bad_alloc(); }), VOREL_ERR_MEMORY);
  EXPECT_EQ(VorelPKIGetLastError(), VOREL_ERR_MEMORY);
  EXPECT_EQ(vorel::crypto::guard([]() -> VOREL_HASH* { throw std::length_error("too long"); }), nullptr);
  EXPECT_EQ(VorelPKIGetLastError(), VOREL_ERR_GENERAL);
}

// Published vectors: GB/T 32905 (SM3), FIPS 180 (SHA-1, SHA-256); a hash is finished once.
TEST_F(Crypto, DigestsMatchPublishedVectors) {
  std::string abcd16;
  for (int i = 0; i < 16; ++i) abcd16 += "abcd";
  struct {
    int alg;
    std::vector<std::string> pieces;
    const char* digest;
  } cases[] = {
      {VOREL_HASH_SM3, {"abc"}, "66c7f0f462eeedd9d1f2d46bdc10e4e24167c4875cf2f7a2297da02b8f4ba8e0"},
      {VOREL_HASH_SM3, {"ab", "", "c"}, "66c7f0f462eeedd9d1f2d46bdc10e4e24167c4875cf2f7a2297da02b8f4ba8e0"},
      {VOREL_HASH_SM3, {abcd16}, "debe9ff92275b8a138604889c18e5a4d6fdb70e5387e5765293dcba39c0c5732"},
      {VOREL_HASH_SHA1, {"abc"}, "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {VOREL_HASH_SHA256, {"abc"}, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {VOREL_HASH_SHA256, {}, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
  };
  for (const auto& c : cases) EXPECT_EQ(digest(c.alg, c.pieces), c.digest) << c.digest;

  Hash hash(VorelPKICryptoNewHash(device_, VOREL_HASH_SM3));
  Out first, second;
  ASSERT_EQ(VorelPKICryptoHashFinal(hash.get(), &first.p, &first.n), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoHashFinal(hash.get(), &second.p, &second.n), VOREL_ERR_PARAM);
  EXPECT_EQ(VorelPKICryptoHashUpdate(hash.get(), first.p, 1), VOREL_ERR_PARAM);
}

TEST_F(Crypto, TokenKeyProtectionMatchesPublishedVectors) {
  namespace b = vorel::backend;
  check_protection_vectors(b::pbkdf2_sha256, b::gcm_seal, b::gcm_open);
}

// Published vectors: GB/T 32907 (SM4), FIPS 197 (AES), FIPS 46 worked example (DES), SP 800-38A
// F.2.1 (AES-CBC), the SM4-CBC example of the IETF SM4 draft; 3DES as `openssl enc -des-ede`,
// `-des-ede3-cbc` compute it.
TEST_F(Crypto, BlockCiphersMatchPublishedVectors) {
  struct Case {
    int alg;
    const char *key, *iv, *plain, *cipher;
  } cases[] = {
      {VOREL_CIPHER_SM4_ECB, "0123456789abcdeffedcba9876543210", "", "0123456789abcdeffedcba9876543210",
       "681edf34d206965e86b3e94f536e4246"},
      {VOREL_CIPHER_SM4_CBC, "0123456789abcdeffedcba9876543210", "000102030405060708090a0b0c0d0e0f",
       "aaaaaaaabbbbbbbbccccccccddddddddeeeeeeeeffffffffaaaaaaaabbbbbbbb",
       "78ebb11cc40b0a48312aaeb2040244cb4cb7016951909226979b0d15dc6a8f6d"},
      {VOREL_CIPHER_AES128_ECB, "000102030405060708090a0b0c0d0e0f", "", "00112233445566778899aabbccddeeff",
       "69c4e0d86a7b0430d8cdb78070b4c55a"},
      {VOREL_CIPHER_AES128_CBC, "2b7e151628aed2a6abf7158809cf4f3c", "000102030405060708090a0b0c0d0e0f",
       "6bc1bee22e409f96e93d7e117393172a", "7649abac8119b246cee98e9b12e9197d"},
      {VOREL_CIPHER_DES_ECB, "133457799bbcdff1", "", "0123456789abcdef", "85e813540f0ab405"},
      // Only the first 8 key bytes count for DES.
      {VOREL_CIPHER_DES_ECB, "133457799bbcdff1ffffffffffffffff", "", "0123456789abcdef", "85e813540f0ab405"},
      // Three equal DES keys make DES again, in both 3DES key forms.
      {VOREL_CIPHER_3DES_ECB, "133457799bbcdff1133457799bbcdff1", "", "0123456789abcdef", "85e813540f0ab405"},
      {VOREL_CIPHER_3DES_ECB, "133457799bbcdff1133457799bbcdff1133457799bbcdff1", "", "0123456789abcdef",
       "85e813540f0ab405"},
      // A two-key 3DES key K1 K2 is K1 K2 K1.
      {VOREL_CIPHER_3DES_ECB, "0123456789abcdef23456789abcdef01", "", "0123456789abcdef", "a6bb373e196b375e"},
      {VOREL_CIPHER_3DES_CBC, "0123456789abcdef23456789abcdef01", "1122334455667788", "0123456789abcdef",
       "c3fe30a5e29fa5d7"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.key);
    Bytes out, back;
    ASSERT_EQ(crypt(c.alg, true, VOREL_PADDING_NONE, unhex(c.key), unhex(c.iv), unhex(c.plain), out), VOREL_OK);
    EXPECT_EQ(hex(out), c.cipher);
    ASSERT_EQ(crypt(c.alg, false, VOREL_PADDING_NONE, unhex(c.key), unhex(c.iv), out, back), VOREL_OK);
    EXPECT_EQ(hex(back), c.plain);
  }
}

TEST_F(Crypto, StreamingInOddPiecesEqualsOneShotForEveryCipher) {
  const int algs[] = {VOREL_CIPHER_SM4_ECB, VOREL_CIPHER_SM4_CBC, VOREL_CIPHER_AES128_ECB, VOREL_CIPHER_AES128_CBC,
                      VOREL_CIPHER_DES_ECB, VOREL_CIPHER_DES_CBC, VOREL_CIPHER_3DES_ECB,   VOREL_CIPHER_3DES_CBC};
  Bytes key(24), iv(16), data(77);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i * 31 + 5);
  for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<unsigned char>(i + 1);
  for (int alg : algs) {
    bool des = alg <= VOREL_CIPHER_3DES_CBC;
    Bytes k(key.begin(), key.begin() + (des ? 24 : 16));
    for (std::size_t len : {std::size_t{0}, std::size_t{7}, std::size_t{16}, std::size_t{77}}) {
      SCOPED_TRACE(std::to_string(alg) + "/" + std::to_string(len));
      Bytes in(data.begin(), data.begin() + static_cast<long>(len)), whole, pieces, back;
      ASSERT_EQ(crypt(alg, true, VOREL_PADDING_PKCS7, k, iv, in, whole), VOREL_OK);
      std::size_t b = des ? 8 : 16;
      EXPECT_EQ(whole.size(), (len / b + 1) * b);
      ASSERT_EQ(crypt(alg, true, VOREL_PADDING_PKCS7, k, iv, in, pieces, {1, 3, 5, 17}), VOREL_OK);
      EXPECT_EQ(pieces, whole);
      ASSERT_EQ(crypt(alg, false, VOREL_PADDING_PKCS7, k, iv, whole, back, {3, 11}), VOREL_OK);
      EXPECT_EQ(back, in);
    }
  }
}

TEST_F(Crypto, UpdateHoldsBackWhatFinalMayNeed) {
  Bytes key(16, 0x11), iv(16, 0x22), data(20, 0x33), ct;
  // Encrypting 20 bytes gives one block at once and the padded rest at Final; decrypting the
  // 32 bytes gives one block at once and the 4 unpadded bytes at Final. Final comes once.
  for (int encrypt : {1, 0}) {
    Cipher c(VorelPKICryptoNewCipher(device_, encrypt, VOREL_CIPHER_SM4_CBC, key.data(), 16, iv.data()));
    ASSERT_NE(c, nullptr);
    ASSERT_EQ(VorelPKICryptoCipherSetPadding(c.get(), VOREL_PADDING_PKCS7), VOREL_OK);
    const Bytes& in = encrypt ? data : ct;
    Out part, last, again;
    ASSERT_EQ(VorelPKICryptoCipherUpdate(c.get(), in.data(), in.size(), &part.p, &part.n), VOREL_OK);
    EXPECT_EQ(part.n, 16u);
    ASSERT_EQ(VorelPKICryptoCipherFinal(c.get(), &last.p, &last.n), VOREL_OK);
    EXPECT_EQ(last.n, encrypt ? 16u : 4u);
    EXPECT_EQ(VorelPKICryptoCipherFinal(c.get(), &again.p, &again.n), VOREL_ERR_PARAM);
    ct = part.bytes();
    ct.insert(ct.end(), last.p, last.p + last.n);
  }
}

TEST_F(Crypto, CipherRefusals) {
  Bytes key(16, 1), iv(16, 2), out, ct;
  // Bad padding, a partial block without padding, keys and modes that do not exist.
  ASSERT_EQ(crypt(VOREL_CIPHER_SM4_ECB, true, VOREL_PADDING_NONE, key, {}, Bytes(16, 0x55), ct), VOREL_OK);
  EXPECT_EQ(crypt(VOREL_CIPHER_SM4_ECB, false, VOREL_PADDING_PKCS7, key, {}, ct, out), VOREL_ERR_DECRYPT);
  EXPECT_EQ(crypt(VOREL_CIPHER_SM4_ECB, true, VOREL_PADDING_NONE, key, {}, Bytes(17, 0), out), VOREL_ERR_DATA_LEN);
  EXPECT_EQ(crypt(VOREL_CIPHER_SM4_ECB, false, VOREL_PADDING_PKCS7, key, {}, Bytes(15, 0), out), VOREL_ERR_DATA_LEN);
  EXPECT_EQ(crypt(VOREL_CIPHER_SM4_CBC, true, VOREL_PADDING_NONE, key, {}, Bytes(16, 0), out), VOREL_ERR_PARAM);
  EXPECT_EQ(crypt(VOREL_CIPHER_AES128_ECB, true, VOREL_PADDING_NONE, Bytes(24, 1), {}, Bytes(16, 0), out),
            VOREL_ERR_PARAM);
  EXPECT_EQ(crypt(VOREL_CIPHER_SM1_ECB, true, VOREL_PADDING_NONE, key, {}, Bytes(16, 0), out), VOREL_ERR_NOT_SUPPORTED);
  EXPECT_EQ(crypt(VOREL_CIPHER_SSF33_CBC, true, VOREL_PADDING_NONE, key, iv, Bytes(16, 0), out),
            VOREL_ERR_NOT_SUPPORTED);
  Cipher c(VorelPKICryptoNewCipher(device_, 1, VOREL_CIPHER_SM4_ECB, key.data(), 16, nullptr));
  EXPECT_EQ(VorelPKICryptoCipherSetPadding(c.get(), 3), VOREL_ERR_PARAM);
}

// The capability table a connected device's DEVINFO is built from.
TEST_F(Crypto, SupportedAlgorithmsAreWhatTheLibraryRuns) {
  const int sm3 = VOREL_HASH_SM3, sha1 = VOREL_HASH_SHA1;
  struct Case {
    int alg, bits, usage;
    const void* param;
    int expected;
  } cases[] = {
      {VOREL_CIPHER_SM1_ECB, 128, 1, nullptr, 0},    {VOREL_CIPHER_SM1_CBC, 128, 2, nullptr, 0},
      {VOREL_CIPHER_SSF33_ECB, 128, 1, nullptr, 0},  {VOREL_CIPHER_SSF33_CBC, 128, 2, nullptr, 0},
      {VOREL_CIPHER_SM4_ECB, 128, 1, nullptr, 1},    {VOREL_CIPHER_SM4_CBC, 128, 2, nullptr, 1},
      {VOREL_CIPHER_AES128_ECB, 128, 1, nullptr, 1}, {VOREL_CIPHER_AES128_CBC, 128, 2, nullptr, 1},
      {VOREL_CIPHER_3DES_ECB, 168, 1, nullptr, 1},   {VOREL_CIPHER_3DES_CBC, 168, 2, nullptr, 1},
      {VOREL_CIPHER_DES_ECB, 64, 1, nullptr, 1},     {VOREL_CIPHER_DES_CBC, 64, 2, nullptr, 1},
      {VOREL_CIPHER_SM4_ECB, 256, 1, nullptr, 0},    {VOREL_CIPHER_SM4_ECB, 128, 5, nullptr, 0},
      {VOREL_MECH_RSA_PKCS1, 1024, 2, nullptr, 1},   {VOREL_MECH_RSA_RAW, 1024, 2, nullptr, 1},
      {VOREL_MECH_RSA_PKCS1, 1000, 2, nullptr, 0},   {VOREL_MECH_SM2_ENCRYPT, 256, 2, &sm3, 1},
      {VOREL_MECH_SM2_ENCRYPT, 256, 2, &sha1, 0},    {VOREL_MECH_SM2_SM3_SIGN, 256, 5, nullptr, 1},
      {VOREL_MECH_SM2_SIGN, 256, 5, nullptr, 1},     {0x1234, 128, 1, nullptr, 0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(VorelPKICryptoIsSupportedAlgorithm(device_, c.alg, c.bits, c.usage, c.param), c.expected)
        << std::hex << c.alg << " " << std::dec << c.bits << " " << c.usage;
  }
}

}  // namespace
