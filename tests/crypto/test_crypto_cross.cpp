// The library against the other cryptographic implementation, linked into this suite under
// the namespace vorel::other: what one makes, the other must read. Linux only (the Windows
// build has no OpenSSL); there the openssl-made data of the keys suite plays this part.
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/obj_mac.h>

#include <cstring>
#include <memory>
#include <random>

#include "crypto/backend.h"
#include "crypto/der.h"
#include "crypto_support.h"
#include "protection_vectors.h"

namespace {

using namespace crypto_test;
namespace other = vorel::other;

struct OtherKey {
  other::Key* p = nullptr;
  ~OtherKey() { other::key_free(p); }
};

class Cross : public Device {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(other::init()); }

  // A fresh SM2 key pair, and the same key in the other implementation.
  struct Sm2Twin {
    Pair kp;
    Pub pub;
    OtherKey other;
    unsigned char d[32];
  };
  void make_sm2(Sm2Twin& t, int type) {
    ASSERT_EQ(VorelPKICryptoGenerateKeypair(device_, VOREL_ALG_SM2, 256, 0, type, vorel::out(t.kp)), VOREL_OK);
    Out pkcs8;
    ASSERT_EQ(VorelPKICryptoExportKeypair(t.kp.get(), &pkcs8.p, &pkcs8.n), VOREL_OK);
    ASSERT_TRUE(sm2_private_value(pkcs8.p, pkcs8.n, t.d));
    t.pub = public_of(t.kp);
    t.other.p = other::sm2_import(nullptr, t.d);  // the other derives the public point itself
    ASSERT_NE(t.other.p, nullptr);
  }

  other::Key* other_rsa(VOREL_KEYPAIR* kp) {
    Out pkcs8;
    EXPECT_EQ(VorelPKICryptoExportKeypair(kp, &pkcs8.p, &pkcs8.n), VOREL_OK);
    unsigned char* nums[8] = {};
    size_t lens[8] = {};
    EXPECT_EQ(VorelPKICryptoDecodeRSAKeyPair(pkcs8.p, pkcs8.n, nums, lens), VOREL_OK);
    other::RsaNumbers k;
    vorel::crypto::SecureBytes* fields[] = {&k.n, &k.e, &k.d, &k.p, &k.q, &k.dp, &k.dq, &k.qinv};
    for (int i = 0; i < 8; ++i) {
      fields[i]->assign(nums[i], nums[i] + lens[i]);
      VorelPKICryptoFreeMemory(nums[i]);
    }
    return other::rsa_import(k, true);
  }

  std::mt19937 rng_{20261121};
  Bytes random_bytes(std::size_t n) {
    Bytes b(n);
    for (auto& c : b) c = static_cast<unsigned char>(rng_());
    return b;
  }
};

// x2 || y2 = d·C1, computed with OpenSSL's own point arithmetic, to see which ciphertexts
// exercise coordinates with leading zero bytes.
bool shared_point_has_leading_zero(const unsigned char* d, const unsigned char* c1) {
  static EC_GROUP* group = EC_GROUP_new_by_curve_name(NID_sm2);  // made once: making it costs a lot
  std::unique_ptr<EC_POINT, decltype(&EC_POINT_free)> p(EC_POINT_new(group), EC_POINT_free),
      s(EC_POINT_new(group), EC_POINT_free);
  std::unique_ptr<BIGNUM, decltype(&BN_free)> k(BN_bin2bn(d, 32, nullptr), BN_free);
  EC_POINT_oct2point(group, p.get(), c1, 65, nullptr);
  EC_POINT_mul(group, s.get(), nullptr, p.get(), k.get(), nullptr);
  unsigned char xy[65];
  EC_POINT_point2oct(group, s.get(), POINT_CONVERSION_UNCOMPRESSED, xy, sizeof xy, nullptr);
  return xy[1] == 0 || xy[33] == 0;
}

// 2,500 ciphertexts each way; every fourth plaintext starts with zero bytes. A shared point has
// x2 or y2 starting with a zero byte (where libgcrypt's own SM2 goes wrong) with probability
// 1 - (255/256)^2, about 1/128: 5,000 ciphertexts hold 39 such points on average, and fewer
// than 10 with probability below 1e-8.
TEST_F(Cross, Sm2CiphertextsDecryptInTheOtherImplementation) {
  const int kCases = 2500;
  int leadingZeroPoints = 0;
  Sm2Twin t;
  make_sm2(t, VOREL_KEYPAIR_ENCRYPT);
  for (int i = 0; i < kCases; ++i) {
    Bytes m = random_bytes(1 + rng_() % 80);
    if (i % 4 == 0) m[0] = 0;
    if (i % 8 == 0 && m.size() > 1) m[1] = 0;
    // Ours to theirs.
    Bytes ct, plain(m.size()), mine;
    ASSERT_EQ(encrypt(t.pub.get(), VOREL_MECH_SM2_ENCRYPT, m, &ct), VOREL_OK);
    ASSERT_EQ(ct.size(), m.size() + 97);
    ASSERT_EQ(other::sm2_decrypt(t.other.p, ct.data(), ct.size(), plain.data()), VOREL_OK) << i;
    ASSERT_EQ(plain, m) << i;
    leadingZeroPoints += shared_point_has_leading_zero(t.d, ct.data());
    // Theirs to ours.
    Bytes theirs(m.size() + 97);
    ASSERT_EQ(other::sm2_encrypt(t.other.p, m.data(), m.size(), theirs.data()), VOREL_OK);
    ASSERT_EQ(decrypt(t.kp.get(), VOREL_MECH_SM2_ENCRYPT, theirs, &mine), VOREL_OK) << i;
    ASSERT_EQ(mine, m) << i;
    leadingZeroPoints += shared_point_has_leading_zero(t.d, theirs.data());
  }
  EXPECT_GE(leadingZeroPoints, 10) << "too few shared points with leading zero bytes were exercised";
}

TEST_F(Cross, RsaOperationsCrossBothWays) {
  for (int bits : {1024, 2048}) {
    SCOPED_TRACE(bits);
    Pair kp;
    ASSERT_EQ(VorelPKICryptoGenerateKeypair(device_, VOREL_ALG_RSA, bits, 0, VOREL_KEYPAIR_SIGN, vorel::out(kp)),
              VOREL_OK);
    OtherKey ok;
    ok.p = other_rsa(kp.get());
    ASSERT_NE(ok.p, nullptr);
    Pub pub = public_of(kp);
    std::size_t k = static_cast<std::size_t>(bits / 8);
    for (int i = 0; i < 10; ++i) {
      Bytes m = random_bytes(1 + rng_() % (k - 11));
      Bytes sig, theirs(k), ct, pt, plain(k), raw;
      ASSERT_EQ(sign(kp.get(), VOREL_MECH_RSA_PKCS1_SIGN, m, &sig), VOREL_OK);
      ASSERT_EQ(other::rsa_sign_pkcs1(ok.p, m.data(), m.size(), theirs.data()), VOREL_OK);
      EXPECT_EQ(sig, theirs);
      EXPECT_EQ(other::rsa_verify_pkcs1(ok.p, m.data(), m.size(), sig.data()), VOREL_OK);

      ASSERT_EQ(encrypt(pub.get(), VOREL_MECH_RSA_PKCS1, m, &ct), VOREL_OK);
      std::size_t plainLen = 0;
      ASSERT_EQ(other::rsa_decrypt(ok.p, true, ct.data(), ct.size(), plain.data(), &plainLen), VOREL_OK);
      EXPECT_EQ(Bytes(plain.begin(), plain.begin() + static_cast<long>(plainLen)), m);
      ASSERT_EQ(other::rsa_encrypt(ok.p, true, m.data(), m.size(), theirs.data()), VOREL_OK);
      ASSERT_EQ(decrypt(kp.get(), VOREL_MECH_RSA_PKCS1, theirs, &pt), VOREL_OK);
      EXPECT_EQ(pt, m);

      // Raw private in one, raw public in the other.
      Bytes block = random_bytes(k);
      block[0] = 0x01;
      ASSERT_EQ(decrypt(kp.get(), VOREL_MECH_RSA_RAW, block, &raw), VOREL_OK);
      ASSERT_EQ(other::rsa_encrypt(ok.p, false, raw.data(), raw.size(), theirs.data()), VOREL_OK);
      EXPECT_EQ(theirs, block);
    }
  }
}

TEST(CrossProtection, TheOtherImplementationMatchesTheSameVectors) {
  ASSERT_TRUE(other::init());
  check_protection_vectors(other::pbkdf2_sha256, other::gcm_seal, other::gcm_open);
}

}  // namespace
