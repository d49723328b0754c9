// Key pairs, encodings, signatures, public-key encryption and certificates, checked against
// keys, signatures, ciphertexts and certificates made by the openssl command.
#include <cstring>
#include <string>

#include "crypto/der.h"
#include "crypto_support.h"

namespace {

using namespace crypto_test;

class Keys : public Device {
 protected:
  static void SetUpTestSuite() {
    VOREL_DEVICE* d = nullptr;
    ASSERT_EQ(VorelPKICryptoGetPseudoDevice(&d), VOREL_OK);
    // RSA generation is slow on libgcrypt: one key per size for the whole suite.
    ASSERT_EQ(VorelPKICryptoGenerateKeypair(d, VOREL_ALG_RSA, 1024, 0, VOREL_KEYPAIR_ENCRYPT, &rsa1024_), VOREL_OK);
    VorelPKICryptoFreeDevice(d);
  }
  static void TearDownTestSuite() { VorelPKICryptoFreeKeypair(rsa1024_); }
  void SetUp() override {
    Device::SetUp();
    // Without the openssl-made files the tests below would index empty buffers.
    ASSERT_FALSE(data("msg.bin").empty()) << "run from the folder holding testdata/";
  }

  int sign(VOREL_KEYPAIR* kp, int mech, const Bytes& data, Bytes& sig) {
    Out out;
    int rc = VorelPKICryptoSignHash(kp, mech, nullptr, data.data(), data.size(), &out.p, &out.n);
    sig = out.bytes();
    return rc;
  }
  int verify(VOREL_PUBLICKEY* pub, int mech, const Bytes& data, const Bytes& sig) {
    return VorelPKICryptoVerifyHash(pub, mech, nullptr, data.data(), data.size(), sig.data(), sig.size());
  }
  int encrypt(VOREL_PUBLICKEY* pub, int mech, const Bytes& in, Bytes& result) {
    Out out;
    int rc = VorelPKICryptoPublicKeyEncrypt(pub, mech, nullptr, in.data(), in.size(), &out.p, &out.n);
    result = out.bytes();
    return rc;
  }
  int decrypt(VOREL_KEYPAIR* kp, int mech, const Bytes& in, Bytes& result) {
    Out out;
    int rc = VorelPKICryptoPrivateKeyDecrypt(kp, mech, nullptr, in.data(), in.size(), &out.p, &out.n);
    result = out.bytes();
    return rc;
  }
  Bytes sm3(const Bytes& a, const Bytes& b) {
    VOREL_HASH* h = VorelPKICryptoNewHash(device_, VOREL_HASH_SM3);
    VorelPKICryptoHashUpdate(h, a.data(), a.size());
    VorelPKICryptoHashUpdate(h, b.data(), b.size());
    Out out;
    EXPECT_EQ(VorelPKICryptoHashFinal(h, &out.p, &out.n), VOREL_OK);
    VorelPKICryptoFreeHash(h);
    return out.bytes();
  }
  Bytes z_of(VOREL_PUBLICKEY* pub, const std::string& id) {
    VOREL_SM2_ID ident{reinterpret_cast<const unsigned char*>(id.data()), id.size() * 8};
    Out z;
    EXPECT_EQ(VorelPKIComputeSM2Z(pub, VOREL_HASH_SM3, &ident, &z.p, &z.n), VOREL_OK);
    return z.bytes();
  }
  static VOREL_KEYPAIR* rsa1024_;
};
VOREL_KEYPAIR* Keys::rsa1024_ = nullptr;

TEST_F(Keys, GeneratedKeyPairsReportWhatTheyAre) {
  Pair sm2;
  ASSERT_EQ(VorelPKICryptoGenerateKeypair(device_, VOREL_ALG_SM2, 256, VOREL_CURVE_SM2, VOREL_KEYPAIR_SIGN, &sm2.p),
            VOREL_OK);
  EXPECT_EQ(VorelPKICryptoGetKeypairType(sm2.p), VOREL_KEYPAIR_SIGN);
  EXPECT_EQ(VorelPKICryptoGetKeypairAlgorithm(sm2.p), VOREL_ALG_SM2);
  EXPECT_EQ(VorelPKICryptoGetKeypairBits(sm2.p), 256);
  EXPECT_EQ(VorelPKICryptoGetKeypairType(rsa1024_), VOREL_KEYPAIR_ENCRYPT);
  EXPECT_EQ(VorelPKICryptoGetKeypairBits(rsa1024_), 1024);
  char* label = nullptr;
  ASSERT_EQ(VorelPKICryptoGetKeypairLabel(sm2.p, &label), VOREL_OK);
  EXPECT_STREQ(label, "");
  VorelPKICryptoFreeMemory(label);
  EXPECT_EQ(VorelPKICryptoGetKeypairBits(nullptr), -1);

  Pair bad;
  EXPECT_EQ(VorelPKICryptoGenerateKeypair(device_, VOREL_ALG_RSA, 1536, 0, VOREL_KEYPAIR_SIGN, &bad.p),
            VOREL_ERR_NOT_SUPPORTED);
  EXPECT_EQ(VorelPKICryptoGenerateKeypair(device_, VOREL_ALG_SM2, 256, 5, VOREL_KEYPAIR_SIGN, &bad.p),
            VOREL_ERR_NOT_SUPPORTED);
  EXPECT_EQ(VorelPKICryptoGenerateKeypair(device_, VOREL_ALG_SM2, 256, 0, 9, &bad.p), VOREL_ERR_PARAM);
  EXPECT_EQ(bad.p, nullptr);

  // A duplicate is the same key pair and outlives the original reference.
  VOREL_KEYPAIR* dup = nullptr;
  ASSERT_EQ(VorelPKICryptoDupKeypair(sm2.p, &dup), VOREL_OK);
  Pub a, b;
  a.p = public_of(sm2.p);
  VorelPKICryptoFreeKeypair(sm2.p);
  sm2.p = dup;
  b.p = public_of(dup);
  EXPECT_EQ(VorelPKICryptoPublicKeyEqual(a.p, b.p), 1);
}

TEST_F(Keys, OpenSslKeysImportAndExportToTheSameDer) {
  for (const char* name : {"sm2", "rsa"}) {
    SCOPED_TRACE(name);
    Bytes keyDer = data(std::string(name) + ".key.der"), pubDer = data(std::string(name) + ".pub.der");
    Pair kp;
    kp.p = import_pair(keyDer);
    ASSERT_NE(kp.p, nullptr);
    Out exported;
    ASSERT_EQ(VorelPKICryptoExportKeypair(kp.p, &exported.p, &exported.n), VOREL_OK);
    EXPECT_EQ(exported.bytes(), keyDer);
    Pub fromPair, imported;
    fromPair.p = public_of(kp.p);
    imported.p = import_public(pubDer);
    Out spki;
    ASSERT_EQ(VorelPKICryptoExportPublicKey(fromPair.p, &spki.p, &spki.n), VOREL_OK);
    EXPECT_EQ(spki.bytes(), pubDer);
    EXPECT_EQ(VorelPKICryptoPublicKeyEqual(fromPair.p, imported.p), 1);
  }
  // PKCS#1 RSAPrivateKey and SEC1 ECPrivateKey as the traditional forms are the same keys.
  for (const char* name : {"rsa.pkcs1", "sm2.sec1"}) {
    Pair traditional;
    traditional.p = import_pair(data(std::string(name) + ".der"));
    Out exported;
    ASSERT_EQ(VorelPKICryptoExportKeypair(traditional.p, &exported.p, &exported.n), VOREL_OK);
    EXPECT_EQ(exported.bytes(), data(std::string(name).substr(0, 3) + ".key.der"));
  }
}

TEST_F(Keys, NumberEncodingsRoundTripThroughOpenSslDer) {
  Bytes sm2Pub = data("sm2.pub.der");
  int curve = 0;
  Out x, y, again;
  ASSERT_EQ(VorelPKICryptoDecodeECCPubKey(sm2Pub.data(), sm2Pub.size(), &curve, &x.p, &x.n, &y.p, &y.n), VOREL_OK);
  EXPECT_EQ(curve, VOREL_CURVE_SM2);
  EXPECT_EQ(x.n, 32u);
  ASSERT_EQ(VorelPKICryptoEncodeECCPubKey(VOREL_CURVE_SM2, x.p, x.n, y.p, y.n, &again.p, &again.n), VOREL_OK);
  EXPECT_EQ(again.bytes(), sm2Pub);

  Bytes rsaPub = data("rsa.pub.der");
  Out n, e, rsaAgain;
  ASSERT_EQ(VorelPKICryptoDecodeRSAPubKey(rsaPub.data(), rsaPub.size(), &n.p, &n.n, &e.p, &e.n), VOREL_OK);
  EXPECT_EQ(n.n, 256u);
  EXPECT_EQ(hex(e.bytes()), "010001");
  // Leading zero bytes given by a caller (right-aligned blob fields) do not change the key.
  Bytes paddedN(4, 0);
  paddedN.insert(paddedN.end(), n.p, n.p + n.n);
  ASSERT_EQ(VorelPKICryptoEncodeRSAPubKey(paddedN.data(), paddedN.size(), e.p, e.n, &rsaAgain.p, &rsaAgain.n),
            VOREL_OK);
  EXPECT_EQ(rsaAgain.bytes(), rsaPub);

  Bytes rsaKey = data("rsa.key.der");
  unsigned char* numbers[VOREL_RSA_NUMBERS] = {};
  size_t lengths[VOREL_RSA_NUMBERS] = {};
  ASSERT_EQ(VorelPKICryptoDecodeRSAKeyPair(rsaKey.data(), rsaKey.size(), numbers, lengths), VOREL_OK);
  Out keyAgain;
  ASSERT_EQ(VorelPKICryptoEncodeRSAKeyPair(numbers, lengths, &keyAgain.p, &keyAgain.n), VOREL_OK);
  EXPECT_EQ(keyAgain.bytes(), rsaKey);
  for (unsigned char* p : numbers) VorelPKICryptoFreeMemory(p);
}

TEST_F(Keys, SignatureEncodingStripsAndRestoresLeadingZeros) {
  Bytes r(32, 0), s(32, 0x80);
  r[31] = 1;
  Out der, rOut, sOut;
  ASSERT_EQ(VorelPKICryptoEncodeECCSignature(r.data(), 32, s.data(), 32, &der.p, &der.n), VOREL_OK);
  // INTEGER 1, and INTEGER 0x00 0x80.. (a sign byte for the top bit).
  EXPECT_EQ(hex(der.bytes()).substr(0, 10), "3026020101");
  ASSERT_EQ(VorelPKICryptoDecodeECCSignature(der.p, der.n, &rOut.p, &rOut.n, &sOut.p, &sOut.n), VOREL_OK);
  EXPECT_EQ(hex(rOut.bytes()), "01");
  EXPECT_EQ(sOut.bytes(), s);
}

// Every decoder refuses truncations and corruptions of valid input without reading past it.
TEST_F(Keys, MalformedEncodingsAreRefused) {
  Bytes inputs[] = {data("sm2.pub.der"), data("rsa.pub.der"), data("sm2.key.der"), data("rsa.key.der"),
                    data("msg.sm2.sig"), data("p7.sm2.der")};
  for (int which = 0; which < 6; ++which) {
    const Bytes& good = inputs[which];
    auto accepted = [&](const Bytes& in) {
      Out a, b;
      int curve;
      unsigned char* nums[8] = {};
      size_t lens[8] = {};
      int rc;
      switch (which) {
        case 0:
          rc = VorelPKICryptoDecodeECCPubKey(in.data(), in.size(), &curve, &a.p, &a.n, &b.p, &b.n);
          break;
        case 1:
          rc = VorelPKICryptoDecodeRSAPubKey(in.data(), in.size(), &a.p, &a.n, &b.p, &b.n);
          break;
        case 2: {
          Pair kp;
          rc = VorelPKICryptoImportKeypair(device_, in.data(), in.size(), VOREL_KEYPAIR_SIGN, &kp.p);
          break;
        }
        case 3:
          rc = VorelPKICryptoDecodeRSAKeyPair(in.data(), in.size(), nums, lens);
          for (unsigned char* p : nums) VorelPKICryptoFreeMemory(p);
          break;
        case 4:
          rc = VorelPKICryptoDecodeECCSignature(in.data(), in.size(), &a.p, &a.n, &b.p, &b.n);
          break;
        default:
          rc = VorelPKICryptoDecodeSM2Cipher(in.data(), in.size(), &a.p, &a.n);
          break;
      }
      return rc == VOREL_OK;
    };
    SCOPED_TRACE(which);
    ASSERT_TRUE(accepted(good));
    for (std::size_t len = 0; len < good.size(); len += 1 + len / 8) {
      // Exact-size copies, so that a read past the end is a sanitizer error.
      Bytes cut(good.begin(), good.begin() + static_cast<long>(len));
      EXPECT_FALSE(accepted(cut)) << "truncated to " << len;
    }
    Bytes trailing = good;
    trailing.push_back(0);
    EXPECT_FALSE(accepted(trailing));
    Bytes longer = good;
    longer[1] = static_cast<unsigned char>(longer[1] + 1);
    EXPECT_FALSE(accepted(longer));
  }
  // A point off the curve and an unknown curve.
  Bytes pub = data("sm2.pub.der");
  pub.back() ^= 1;
  Pub p;
  EXPECT_EQ(VorelPKICryptoImportPublicKey(device_, pub.data(), pub.size(), &p.p), VOREL_ERR_BAD_ENCODING);
  Bytes otherCurve = data("sm2.pub.der");
  auto at = std::search(otherCurve.begin(), otherCurve.end(), vorel::crypto::der::kOidSm2Curve.bytes,
                        vorel::crypto::der::kOidSm2Curve.bytes + vorel::crypto::der::kOidSm2Curve.len);
  ASSERT_NE(at, otherCurve.end());
  at[7] ^= 0x7F;
  EXPECT_EQ(VorelPKICryptoImportPublicKey(device_, otherCurve.data(), otherCurve.size(), &p.p),
            VOREL_ERR_NOT_SUPPORTED);
}

TEST_F(Keys, Sm2SignaturesFromOpenSslVerifyWithOurZ) {
  // openssl dgst -sm3 -sigopt distid:1234567812345678 signs SM3(Z || M).
  Pub pub;
  pub.p = import_public(data("sm2.pub.der"));
  Bytes msg = data("msg.bin"), sig = data("msg.sm2.sig");
  Bytes e = sm3(z_of(pub.p, "1234567812345678"), msg);
  EXPECT_EQ(verify(pub.p, VOREL_MECH_SM2_SIGN, e, sig), VOREL_OK);
  EXPECT_EQ(verify(pub.p, VOREL_MECH_SM2_SM3_SIGN, msg, sig), VOREL_OK);
  // Another identity gives another Z, and the signature no longer verifies.
  EXPECT_EQ(verify(pub.p, VOREL_MECH_SM2_SIGN, sm3(z_of(pub.p, "1234567812345679"), msg), sig),
            VOREL_ERR_BAD_SIGNATURE);
  Bytes tampered = msg;
  tampered[0] ^= 1;
  EXPECT_EQ(verify(pub.p, VOREL_MECH_SM2_SM3_SIGN, tampered, sig), VOREL_ERR_BAD_SIGNATURE);
  EXPECT_EQ(verify(pub.p, VOREL_MECH_SM2_SIGN, Bytes(31, 1), sig), VOREL_ERR_DATA_LEN);
}

TEST_F(Keys, Sm2SignAndVerifyOwnSignatures) {
  Pair kp;
  kp.p = import_pair(data("sm2.key.der"));
  Pub pub;
  pub.p = public_of(kp.p);
  Bytes e(32, 0xA5), sig;
  ASSERT_EQ(sign(kp.p, VOREL_MECH_SM2_SIGN, e, sig), VOREL_OK);
  EXPECT_EQ(verify(pub.p, VOREL_MECH_SM2_SIGN, e, sig), VOREL_OK);
  Bytes other = e;
  other[5] ^= 0x10;
  EXPECT_EQ(verify(pub.p, VOREL_MECH_SM2_SIGN, other, sig), VOREL_ERR_BAD_SIGNATURE);
  EXPECT_EQ(sign(kp.p, VOREL_MECH_SM2_SIGN, Bytes(33, 1), sig), VOREL_ERR_DATA_LEN);
  EXPECT_EQ(sign(kp.p, VOREL_MECH_RSA_PKCS1_SIGN, e, sig), VOREL_ERR_NOT_SUPPORTED);
  EXPECT_EQ(sign(kp.p, 99, e, sig), VOREL_ERR_NOT_SUPPORTED);
}

TEST_F(Keys, RsaAgreesWithOpenSslSignaturesAndCiphertexts) {
  Pair kp;
  kp.p = import_pair(data("rsa.key.der"));
  Pub pub;
  pub.p = public_of(kp.p);
  Bytes secret = data("short.bin"), sig, plain;
  // PKCS#1 v1.5 signatures are deterministic: ours must equal OpenSSL's byte for byte.
  ASSERT_EQ(sign(kp.p, VOREL_MECH_RSA_PKCS1_SIGN, secret, sig), VOREL_OK);
  EXPECT_EQ(sig, data("short.rsa.sig"));
  EXPECT_EQ(verify(pub.p, VOREL_MECH_RSA_PKCS1_SIGN, secret, sig), VOREL_OK);
  sig[10] ^= 1;
  EXPECT_EQ(verify(pub.p, VOREL_MECH_RSA_PKCS1_SIGN, secret, sig), VOREL_ERR_BAD_SIGNATURE);
  ASSERT_EQ(decrypt(kp.p, VOREL_MECH_RSA_PKCS1, data("short.rsa.enc"), plain), VOREL_OK);
  EXPECT_EQ(plain, secret);
}

TEST_F(Keys, RsaMechanismsKeepTheirLengthRules) {
  Pub pub;
  pub.p = public_of(rsa1024_);
  Bytes sig, ct, plain;
  EXPECT_EQ(sign(rsa1024_, VOREL_MECH_RSA_PKCS1_SIGN, Bytes(117, 7), sig), VOREL_OK);
  EXPECT_EQ(sig.size(), 128u);
  EXPECT_EQ(sign(rsa1024_, VOREL_MECH_RSA_PKCS1_SIGN, Bytes(118, 7), sig), VOREL_ERR_DATA_LEN);
  ASSERT_EQ(encrypt(pub.p, VOREL_MECH_RSA_PKCS1, Bytes(24, 9), ct), VOREL_OK);
  EXPECT_EQ(ct.size(), 128u);
  ASSERT_EQ(decrypt(rsa1024_, VOREL_MECH_RSA_PKCS1, ct, plain), VOREL_OK);
  EXPECT_EQ(plain, Bytes(24, 9));
  EXPECT_EQ(decrypt(rsa1024_, VOREL_MECH_RSA_PKCS1, Bytes(ct.begin(), ct.end() - 1), plain), VOREL_ERR_DATA_LEN);
  EXPECT_EQ(encrypt(pub.p, VOREL_MECH_RSA_PKCS1, Bytes(118, 9), ct), VOREL_ERR_DATA_LEN);

  // Raw: private then public gives the block back; shorter input is a number with leading zeros.
  Bytes block(128, 0x3C), back;
  block[0] = 0x01;
  ASSERT_EQ(decrypt(rsa1024_, VOREL_MECH_RSA_RAW, block, ct), VOREL_OK);
  ASSERT_EQ(encrypt(pub.p, VOREL_MECH_RSA_RAW, ct, back), VOREL_OK);
  EXPECT_EQ(back, block);
  ASSERT_EQ(decrypt(rsa1024_, VOREL_MECH_RSA_RAW, Bytes(block.begin() + 1, block.end()), ct), VOREL_OK);
  ASSERT_EQ(encrypt(pub.p, VOREL_MECH_RSA_RAW, ct, back), VOREL_OK);
  EXPECT_EQ(hex(back), "00" + hex(Bytes(block.begin() + 1, block.end())));
  // At or above the modulus, or longer than it: refused.
  EXPECT_EQ(encrypt(pub.p, VOREL_MECH_RSA_RAW, Bytes(128, 0xFF), back), VOREL_ERR_DATA_LEN);
  EXPECT_EQ(decrypt(rsa1024_, VOREL_MECH_RSA_RAW, Bytes(129, 1), back), VOREL_ERR_DATA_LEN);
}

TEST_F(Keys, Sm2CiphertextsOfOpenSslDecrypt) {
  Pair kp;
  kp.p = import_pair(data("sm2.key.der"));
  for (int i = 1; i <= 40; ++i) {
    SCOPED_TRACE(i);
    Bytes expected = data("p" + std::to_string(i) + ".bin"), der = data("p" + std::to_string(i) + ".sm2.der");
    Out raw, again;
    ASSERT_EQ(VorelPKICryptoDecodeSM2Cipher(der.data(), der.size(), &raw.p, &raw.n), VOREL_OK);
    Bytes ct = raw.bytes();
    ASSERT_EQ(ct.size(), expected.size() + 97);
    ASSERT_EQ(VorelPKICryptoEncodeSM2Cipher(ct.data(), ct.size(), &again.p, &again.n), VOREL_OK);
    EXPECT_EQ(again.bytes(), der);
    Bytes plain;
    ASSERT_EQ(decrypt(kp.p, VOREL_MECH_SM2_ENCRYPT, ct, plain), VOREL_OK);
    EXPECT_EQ(plain, expected);
    ct[70] ^= 1;
    EXPECT_EQ(decrypt(kp.p, VOREL_MECH_SM2_ENCRYPT, ct, plain), VOREL_ERR_DECRYPT);
  }
}

TEST_F(Keys, Sm2EncryptionRoundTripsAndRefusesWhatItCannotRead) {
  Pair kp;
  kp.p = import_pair(data("sm2.key.der"), VOREL_KEYPAIR_ENCRYPT);
  Pub pub;
  pub.p = public_of(kp.p);
  Bytes msg = {0, 0, 1, 2, 3}, ct, plain;
  ASSERT_EQ(encrypt(pub.p, VOREL_MECH_SM2_ENCRYPT, msg, ct), VOREL_OK);
  EXPECT_EQ(ct.size(), msg.size() + 97);
  EXPECT_EQ(ct[0], 0x04);
  ASSERT_EQ(decrypt(kp.p, VOREL_MECH_SM2_ENCRYPT, ct, plain), VOREL_OK);
  EXPECT_EQ(plain, msg);
  Bytes offCurve = ct;
  offCurve[5] ^= 1;
  EXPECT_EQ(decrypt(kp.p, VOREL_MECH_SM2_ENCRYPT, offCurve, plain), VOREL_ERR_DECRYPT);
  EXPECT_EQ(decrypt(kp.p, VOREL_MECH_SM2_ENCRYPT, Bytes(ct.begin(), ct.begin() + 97), plain), VOREL_ERR_DATA_LEN);
  EXPECT_EQ(encrypt(pub.p, VOREL_MECH_SM2_ENCRYPT, {}, ct), VOREL_ERR_DATA_LEN);
  const int sha1 = VOREL_HASH_SHA1;
  Out out;
  EXPECT_EQ(
      VorelPKICryptoPublicKeyEncrypt(pub.p, VOREL_MECH_SM2_ENCRYPT, &sha1, msg.data(), msg.size(), &out.p, &out.n),
      VOREL_ERR_NOT_SUPPORTED);
}

TEST_F(Keys, PrivateValueAloneMakesTheWholeKeyPair) {
  // The SKF layer encodes a bare private value; the point is derived from it.
  Pair full;
  full.p = import_pair(data("sm2.key.der"));
  Out pkcs8;
  ASSERT_EQ(VorelPKICryptoExportKeypair(full.p, &pkcs8.p, &pkcs8.n), VOREL_OK);
  unsigned char d[32];
  ASSERT_TRUE(sm2_private_value(pkcs8.p, pkcs8.n, d));
  Out bare;
  ASSERT_EQ(VorelPKICryptoEncodeECCKeyPair(VOREL_CURVE_SM2, nullptr, 0, nullptr, 0, d, 32, &bare.p, &bare.n), VOREL_OK);
  Pair fromD;
  fromD.p = import_pair(bare.bytes());
  Pub a, b;
  a.p = public_of(full.p);
  b.p = public_of(fromD.p);
  EXPECT_EQ(VorelPKICryptoPublicKeyEqual(a.p, b.p), 1);
  // Zero and the group order are not private values.
  Bytes zero(32, 0);
  Out z;
  ASSERT_EQ(VorelPKICryptoEncodeECCKeyPair(VOREL_CURVE_SM2, nullptr, 0, nullptr, 0, zero.data(), 32, &z.p, &z.n),
            VOREL_OK);
  Pair refused;
  EXPECT_EQ(VorelPKICryptoImportKeypair(device_, z.p, z.n, VOREL_KEYPAIR_SIGN, &refused.p), VOREL_ERR_BAD_ENCODING);
}

TEST_F(Keys, CertificatesFromOpenSslReadAsOpenSslPrintsThem) {
  for (const char* name : {"sm2", "rsa"}) {
    SCOPED_TRACE(name);
    Bytes der = data(std::string(name) + ".crt.der");
    VOREL_CERT* cert = VorelPKICertNewCert(der.data(), der.size());
    ASSERT_NE(cert, nullptr);
    // openssl x509 -subject -nameopt RFC2253 -dateopt iso_8601: "subject=...", "notBefore=YYYY-MM-DD HH:MM:SSZ".
    Bytes txt = data(std::string(name) + ".crt.txt");
    std::string printed(txt.begin(), txt.end());
    auto field = [&](const std::string& key) {
      std::size_t at = printed.find(key + "=");
      std::size_t end = printed.find('\n', at);
      return printed.substr(at + key.size() + 1, end - at - key.size() - 1);
    };
    auto iso = [](const std::string& t) {
      return t.substr(0, 4) + t.substr(5, 2) + t.substr(8, 2) + t.substr(11, 2) + t.substr(14, 2) + t.substr(17, 2) +
             "Z";
    };
    auto attr = [&](int id) {
      char* text = nullptr;
      EXPECT_EQ(VorelPKICertGetCertStringAttribute(cert, id, &text), VOREL_OK);
      std::string s = text ? text : "";
      VorelPKICryptoFreeMemory(text);
      return s;
    };
    EXPECT_EQ(attr(VOREL_CERT_ATTR_SUBJECT), field("subject"));
    EXPECT_EQ(attr(VOREL_CERT_ATTR_NOT_BEFORE), iso(field("notBefore")));
    EXPECT_EQ(attr(VOREL_CERT_ATTR_NOT_AFTER), iso(field("notAfter")));

    Out encoded;
    ASSERT_EQ(VorelPKICertGetCertEncode(cert, VOREL_CERT_ENCODING_DER, &encoded.p, &encoded.n), VOREL_OK);
    EXPECT_EQ(encoded.bytes(), der);
    Pub certKey, fileKey;
    ASSERT_EQ(VorelPKICertGetCertPublicKey(cert, VOREL_CERT_PUBLIC_KEY, &certKey.p), VOREL_OK);
    fileKey.p = import_public(data(std::string(name) + ".pub.der"));
    EXPECT_EQ(VorelPKICryptoPublicKeyEqual(certKey.p, fileKey.p), 1);
    VorelPKICertFreeCert(cert);
  }
  VOREL_CERT* sm2 = nullptr;
  Bytes der = data("sm2.crt.der");
  sm2 = VorelPKICertNewCert(der.data(), der.size());
  char* serial = nullptr;
  ASSERT_EQ(VorelPKICertGetCertStringAttribute(sm2, VOREL_CERT_ATTR_SERIAL, &serial), VOREL_OK);
  EXPECT_STREQ(serial, "1234");
  VorelPKICryptoFreeMemory(serial);
  VorelPKICertFreeCert(sm2);
  der.resize(der.size() - 1);
  EXPECT_EQ(VorelPKICertNewCert(der.data(), der.size()), nullptr);
}

TEST_F(Keys, KeyPairsKeepOnlyTheirOwnCertificate) {
  Bytes der = data("sm2.crt.der"), rsaDer = data("rsa.crt.der");
  VOREL_CERT* cert = VorelPKICertNewCert(der.data(), der.size());
  VOREL_CERT* rsaCert = VorelPKICertNewCert(rsaDer.data(), rsaDer.size());
  Pair owner, stranger;
  owner.p = import_pair(data("sm2.key.der"));
  ASSERT_EQ(VorelPKICryptoGenerateKeypair(device_, VOREL_ALG_SM2, 256, 0, VOREL_KEYPAIR_SIGN, &stranger.p), VOREL_OK);
  VOREL_CERT* none = nullptr;
  EXPECT_EQ(VorelPKICryptoGetCertificate(owner.p, 0, &none), VOREL_ERR_NOT_FOUND);
  EXPECT_EQ(VorelPKICryptoUpdateCertificate(stranger.p, cert), VOREL_ERR_KEY_MISMATCH);
  EXPECT_EQ(VorelPKICryptoUpdateCertificate(owner.p, rsaCert), VOREL_ERR_KEY_MISMATCH);
  ASSERT_EQ(VorelPKICryptoUpdateCertificate(owner.p, cert), VOREL_OK);
  VOREL_CERT* kept = nullptr;
  ASSERT_EQ(VorelPKICryptoGetCertificate(owner.p, 0, &kept), VOREL_OK);
  Out keptDer;
  ASSERT_EQ(VorelPKICertGetCertEncode(kept, VOREL_CERT_ENCODING_DER, &keptDer.p, &keptDer.n), VOREL_OK);
  EXPECT_EQ(keptDer.bytes(), der);
  EXPECT_EQ(VorelPKICryptoGetCertificate(owner.p, 1, &none), VOREL_ERR_NOT_FOUND);
  VorelPKICertFreeCert(kept);
  VorelPKICertFreeCert(cert);
  VorelPKICertFreeCert(rsaCert);
}

TEST_F(Keys, EndTimesCompareInCalendarOrder) {
  auto end_of = [](const char* file) {
    Bytes der = data(file);
    VOREL_CERT* cert = VorelPKICertNewCert(der.data(), der.size());
    char* text = nullptr;
    EXPECT_EQ(VorelPKICertGetCertStringAttribute(cert, VOREL_CERT_ATTR_NOT_AFTER, &text), VOREL_OK);
    vorel_time* t = vorel_time_newutctime(text);
    VorelPKICryptoFreeMemory(text);
    VorelPKICertFreeCert(cert);
    return t;
  };
  vorel_time* oneYear = end_of("sm2.crt.der");
  vorel_time* twoYears = end_of("sm2-later.crt.der");
  ASSERT_NE(oneYear, nullptr);
  ASSERT_NE(twoYears, nullptr);
  EXPECT_EQ(vorel_time_cmp(oneYear, twoYears), -1);
  EXPECT_EQ(vorel_time_cmp(twoYears, oneYear), 1);
  EXPECT_EQ(vorel_time_cmp(oneYear, oneYear), 0);
  vorel_time_free(oneYear);
  vorel_time_free(twoYears);

  // UTCTime's two-digit years and the century, month and leap-day edges.
  struct Case {
    const char *a, *b;
    int expected;
  } cases[] = {
      {"491231235959Z", "500101000000Z", 1},       // 2049 after 1950
      {"20240229000000Z", "20240301000000Z", -1},  // leap day exists in 2024
      {"19991231235959Z", "20000101000000Z", -1},
      {"20301231235959Z", "301231235959Z", 0},
  };
  for (const Case& c : cases) {
    vorel_time *a = vorel_time_newutctime(c.a), *b = vorel_time_newutctime(c.b);
    ASSERT_NE(a, nullptr) << c.a;
    ASSERT_NE(b, nullptr) << c.b;
    EXPECT_EQ(vorel_time_cmp(a, b), c.expected) << c.a << " " << c.b;
    vorel_time_free(a);
    vorel_time_free(b);
  }
  for (const char* bad : {"20230229000000Z", "20241301000000Z", "2024010100000Z", "20240101000000", "", "x"}) {
    EXPECT_EQ(vorel_time_newutctime(bad), nullptr) << bad;
  }
}

}  // namespace
