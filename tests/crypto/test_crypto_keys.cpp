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
    Dev d;
    ASSERT_EQ(VorelPKICryptoGetPseudoDevice(vorel::out(d)), VOREL_OK);
    // RSA generation is slow on libgcrypt: one key for the whole suite.
    ASSERT_EQ(VorelPKICryptoGenerateKeypair(d.get(), VOREL_ALG_RSA, 1024, 0, VOREL_KEYPAIR_ENCRYPT, &rsa1024_),
              VOREL_OK);
  }
  static void TearDownTestSuite() { VorelPKICryptoFreeKeypair(rsa1024_); }
  void SetUp() override {
    Device::SetUp();
    // Without the openssl-made files the tests below would index empty buffers.
    ASSERT_FALSE(data("msg.bin").empty()) << "run from the folder holding testdata/";
  }

  Bytes sm3(const Bytes& a, const Bytes& b) {
    Hash h(VorelPKICryptoNewHash(device_, VOREL_HASH_SM3));
    VorelPKICryptoHashUpdate(h.get(), a.data(), a.size());
    VorelPKICryptoHashUpdate(h.get(), b.data(), b.size());
    Out out;
    EXPECT_EQ(VorelPKICryptoHashFinal(h.get(), &out.p, &out.n), VOREL_OK);
    return out.bytes();
  }
  Bytes z_of(VOREL_PUBLICKEY* pub, const std::string& id) {
    VOREL_SM2_ID ident{reinterpret_cast<const unsigned char*>(id.data()), id.size() * 8};
    Out z;
    EXPECT_EQ(VorelPKIComputeSM2Z(pub, VOREL_HASH_SM3, &ident, &z.p, &z.n), VOREL_OK);
    return z.bytes();
  }
  Bytes exported(VOREL_KEYPAIR* kp) {
    Out der;
    EXPECT_EQ(VorelPKICryptoExportKeypair(kp, &der.p, &der.n), VOREL_OK);
    return der.bytes();
  }
  static VOREL_KEYPAIR* rsa1024_;
};
VOREL_KEYPAIR* Keys::rsa1024_ = nullptr;

TEST_F(Keys, GeneratedKeyPairsReportWhatTheyAre) {
  Pair sm2, bad, dup;
  ASSERT_EQ(
      VorelPKICryptoGenerateKeypair(device_, VOREL_ALG_SM2, 256, VOREL_CURVE_SM2, VOREL_KEYPAIR_SIGN, vorel::out(sm2)),
      VOREL_OK);
  EXPECT_EQ(VorelPKICryptoGetKeypairType(sm2.get()), VOREL_KEYPAIR_SIGN);
  EXPECT_EQ(VorelPKICryptoGetKeypairAlgorithm(sm2.get()), VOREL_ALG_SM2);
  EXPECT_EQ(VorelPKICryptoGetKeypairBits(sm2.get()), 256);
  EXPECT_EQ(VorelPKICryptoGetKeypairType(rsa1024_), VOREL_KEYPAIR_ENCRYPT);
  EXPECT_EQ(VorelPKICryptoGetKeypairBits(rsa1024_), 1024);
  Text label;
  ASSERT_EQ(VorelPKICryptoGetKeypairLabel(sm2.get(), vorel::out(label)), VOREL_OK);
  EXPECT_STREQ(label.get(), "");
  EXPECT_EQ(VorelPKICryptoGetKeypairBits(nullptr), -1);

  EXPECT_EQ(VorelPKICryptoGenerateKeypair(device_, VOREL_ALG_RSA, 1536, 0, VOREL_KEYPAIR_SIGN, vorel::out(bad)),
            VOREL_ERR_NOT_SUPPORTED);
  EXPECT_EQ(VorelPKICryptoGenerateKeypair(device_, VOREL_ALG_SM2, 256, 5, VOREL_KEYPAIR_SIGN, vorel::out(bad)),
            VOREL_ERR_NOT_SUPPORTED);
  EXPECT_EQ(VorelPKICryptoGenerateKeypair(device_, VOREL_ALG_SM2, 256, 0, 9, vorel::out(bad)), VOREL_ERR_PARAM);
  EXPECT_EQ(bad, nullptr);

  // A duplicate is the same key pair and outlives the original reference.
  ASSERT_EQ(VorelPKICryptoDupKeypair(sm2.get(), vorel::out(dup)), VOREL_OK);
  Pub a = public_of(sm2);
  sm2.reset();
  EXPECT_EQ(VorelPKICryptoPublicKeyEqual(a.get(), public_of(dup).get()), 1);
}

TEST_F(Keys, OpenSslKeysImportAndExportToTheSameDer) {
  for (const char* name : {"sm2", "rsa"}) {
    SCOPED_TRACE(name);
    Bytes keyDer = data(std::string(name) + ".key.der"), pubDer = data(std::string(name) + ".pub.der");
    Pair kp = import_pair(keyDer);
    ASSERT_NE(kp, nullptr);
    EXPECT_EQ(exported(kp.get()), keyDer);
    Pub fromPair = public_of(kp);
    EXPECT_EQ(der_of(fromPair.get()), pubDer);
    EXPECT_EQ(VorelPKICryptoPublicKeyEqual(fromPair.get(), import_public(pubDer).get()), 1);
  }
  // PKCS#1 RSAPrivateKey and SEC1 ECPrivateKey as the traditional forms are the same keys.
  for (const char* name : {"rsa.pkcs1", "sm2.sec1"})
    EXPECT_EQ(exported(import_pair(data(std::string(name) + ".der")).get()),
              data(std::string(name).substr(0, 3) + ".key.der"));
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
  Bytes inputs[] = {data("sm2.pub.der"), data("rsa.pub.der"), data("sm2.key.der"),
                    data("rsa.key.der"), data("msg.sm2.sig"), data("p7.sm2.der")};
  for (int which = 0; which < 6; ++which) {
    const Bytes& good = inputs[which];
    auto accepted = [&](const Bytes& in) {
      Out a, b;
      Pair kp;
      int curve;
      unsigned char* nums[8] = {};
      size_t lens[8] = {};
      const unsigned char* p = in.data();
      std::size_t n = in.size();
      int rc = which == 0   ? VorelPKICryptoDecodeECCPubKey(p, n, &curve, &a.p, &a.n, &b.p, &b.n)
               : which == 1 ? VorelPKICryptoDecodeRSAPubKey(p, n, &a.p, &a.n, &b.p, &b.n)
               : which == 2 ? VorelPKICryptoImportKeypair(device_, p, n, VOREL_KEYPAIR_SIGN, vorel::out(kp))
               : which == 3 ? VorelPKICryptoDecodeRSAKeyPair(p, n, nums, lens)
               : which == 4 ? VorelPKICryptoDecodeECCSignature(p, n, &a.p, &a.n, &b.p, &b.n)
                            : VorelPKICryptoDecodeSM2Cipher(p, n, &a.p, &a.n);
      for (unsigned char* number : nums) VorelPKICryptoFreeMemory(number);
      return rc == VOREL_OK;
    };
    SCOPED_TRACE(which);
    ASSERT_TRUE(accepted(good));
    for (std::size_t len = 0; len < good.size(); len += 1 + len / 8) {
      // Exact-size copies, so that a read past the end is a sanitizer error.
      Bytes cut(good.begin(), good.begin() + static_cast<long>(len));
      EXPECT_FALSE(accepted(cut)) << "truncated to " << len;
    }
    Bytes trailing = good, longer = good;
    trailing.push_back(0);
    EXPECT_FALSE(accepted(trailing));
    longer[1] = static_cast<unsigned char>(longer[1] + 1);
    EXPECT_FALSE(accepted(longer));
  }
  // A point off the curve and an unknown curve.
  Bytes pub = data("sm2.pub.der"), otherCurve = pub;
  pub.back() ^= 1;
  Pub p;
  EXPECT_EQ(VorelPKICryptoImportPublicKey(device_, pub.data(), pub.size(), vorel::out(p)), VOREL_ERR_BAD_ENCODING);
  const auto& oid = vorel::crypto::der::kOidSm2Curve;
  auto at = std::search(otherCurve.begin(), otherCurve.end(), oid.bytes, oid.bytes + oid.len);
  ASSERT_NE(at, otherCurve.end());
  at[7] ^= 0x7F;
  EXPECT_EQ(VorelPKICryptoImportPublicKey(device_, otherCurve.data(), otherCurve.size(), vorel::out(p)),
            VOREL_ERR_NOT_SUPPORTED);
}

// openssl dgst -sm3 -sigopt distid:1234567812345678 signs SM3(Z || M): its signature verifies
// with our Z, ours with its public key; another identity gives another Z.
TEST_F(Keys, Sm2SignaturesAgreeWithOpenSslAndTheZValue) {
  Pub pub = import_public(data("sm2.pub.der"));
  Bytes msg = data("msg.bin"), sig = data("msg.sm2.sig"), tampered = msg;
  Bytes e = sm3(z_of(pub.get(), "1234567812345678"), msg);
  EXPECT_EQ(verify(pub.get(), VOREL_MECH_SM2_SIGN, e, sig), VOREL_OK);
  EXPECT_EQ(verify(pub.get(), VOREL_MECH_SM2_SM3_SIGN, msg, sig), VOREL_OK);
  EXPECT_EQ(verify(pub.get(), VOREL_MECH_SM2_SIGN, sm3(z_of(pub.get(), "1234567812345679"), msg), sig),
            VOREL_ERR_BAD_SIGNATURE);
  tampered[0] ^= 1;
  EXPECT_EQ(verify(pub.get(), VOREL_MECH_SM2_SM3_SIGN, tampered, sig), VOREL_ERR_BAD_SIGNATURE);
  EXPECT_EQ(verify(pub.get(), VOREL_MECH_SM2_SIGN, Bytes(31, 1), sig), VOREL_ERR_DATA_LEN);

  // Ours, with the same key, verify under openssl's public key.
  Pair kp = import_pair(data("sm2.key.der"));
  Bytes mine, other = e;
  ASSERT_EQ(sign(kp.get(), VOREL_MECH_SM2_SM3_SIGN, msg, &mine), VOREL_OK);
  EXPECT_EQ(verify(pub.get(), VOREL_MECH_SM2_SM3_SIGN, msg, mine), VOREL_OK);
  ASSERT_EQ(sign(kp.get(), VOREL_MECH_SM2_SIGN, e, &mine), VOREL_OK);
  EXPECT_EQ(verify(pub.get(), VOREL_MECH_SM2_SIGN, e, mine), VOREL_OK);
  other[5] ^= 0x10;
  EXPECT_EQ(verify(pub.get(), VOREL_MECH_SM2_SIGN, other, mine), VOREL_ERR_BAD_SIGNATURE);
  EXPECT_EQ(sign(kp.get(), VOREL_MECH_SM2_SIGN, Bytes(33, 1)), VOREL_ERR_DATA_LEN);
  EXPECT_EQ(sign(kp.get(), VOREL_MECH_RSA_PKCS1_SIGN, e), VOREL_ERR_NOT_SUPPORTED);
  EXPECT_EQ(sign(kp.get(), 99, e), VOREL_ERR_NOT_SUPPORTED);
}

TEST_F(Keys, RsaAgreesWithOpenSslSignaturesAndCiphertexts) {
  Pair kp = import_pair(data("rsa.key.der"));
  Pub pub = public_of(kp);
  Bytes secret = data("short.bin"), sig, plain;
  // PKCS#1 v1.5 signatures are deterministic: ours must equal OpenSSL's byte for byte.
  ASSERT_EQ(sign(kp.get(), VOREL_MECH_RSA_PKCS1_SIGN, secret, &sig), VOREL_OK);
  EXPECT_EQ(sig, data("short.rsa.sig"));
  EXPECT_EQ(verify(pub.get(), VOREL_MECH_RSA_PKCS1_SIGN, secret, sig), VOREL_OK);
  sig[10] ^= 1;
  EXPECT_EQ(verify(pub.get(), VOREL_MECH_RSA_PKCS1_SIGN, secret, sig), VOREL_ERR_BAD_SIGNATURE);
  ASSERT_EQ(decrypt(kp.get(), VOREL_MECH_RSA_PKCS1, data("short.rsa.enc"), &plain), VOREL_OK);
  EXPECT_EQ(plain, secret);
}

TEST_F(Keys, RsaMechanismsKeepTheirLengthRules) {
  Pub pub(VorelPKICryptoGetPublicKeyFromKeypair(rsa1024_));
  Bytes sig, ct, plain;
  EXPECT_EQ(sign(rsa1024_, VOREL_MECH_RSA_PKCS1_SIGN, Bytes(117, 7), &sig), VOREL_OK);
  EXPECT_EQ(sig.size(), 128u);
  EXPECT_EQ(sign(rsa1024_, VOREL_MECH_RSA_PKCS1_SIGN, Bytes(118, 7)), VOREL_ERR_DATA_LEN);
  ASSERT_EQ(encrypt(pub.get(), VOREL_MECH_RSA_PKCS1, Bytes(24, 9), &ct), VOREL_OK);
  EXPECT_EQ(ct.size(), 128u);
  ASSERT_EQ(decrypt(rsa1024_, VOREL_MECH_RSA_PKCS1, ct, &plain), VOREL_OK);
  EXPECT_EQ(plain, Bytes(24, 9));
  EXPECT_EQ(decrypt(rsa1024_, VOREL_MECH_RSA_PKCS1, Bytes(ct.begin(), ct.end() - 1)), VOREL_ERR_DATA_LEN);
  EXPECT_EQ(encrypt(pub.get(), VOREL_MECH_RSA_PKCS1, Bytes(118, 9)), VOREL_ERR_DATA_LEN);

  // Raw: private then public gives the block back; shorter input is a number with leading zeros.
  Bytes block(128, 0x3C), back;
  block[0] = 0x01;
  ASSERT_EQ(decrypt(rsa1024_, VOREL_MECH_RSA_RAW, block, &ct), VOREL_OK);
  ASSERT_EQ(encrypt(pub.get(), VOREL_MECH_RSA_RAW, ct, &back), VOREL_OK);
  EXPECT_EQ(back, block);
  ASSERT_EQ(decrypt(rsa1024_, VOREL_MECH_RSA_RAW, Bytes(block.begin() + 1, block.end()), &ct), VOREL_OK);
  ASSERT_EQ(encrypt(pub.get(), VOREL_MECH_RSA_RAW, ct, &back), VOREL_OK);
  EXPECT_EQ(hex(back), "00" + hex(Bytes(block.begin() + 1, block.end())));
  // At or above the modulus, or longer than it: refused.
  EXPECT_EQ(encrypt(pub.get(), VOREL_MECH_RSA_RAW, Bytes(128, 0xFF)), VOREL_ERR_DATA_LEN);
  EXPECT_EQ(decrypt(rsa1024_, VOREL_MECH_RSA_RAW, Bytes(129, 1)), VOREL_ERR_DATA_LEN);
}

// openssl pkeyutl -encrypt: 40 plaintexts of many lengths, some starting with zero bytes.
TEST_F(Keys, Sm2CiphertextsOfOpenSslDecrypt) {
  Pair kp = import_pair(data("sm2.key.der"));
  for (int i = 1; i <= 40; ++i) {
    SCOPED_TRACE(i);
    Bytes expected = data("p" + std::to_string(i) + ".bin"), der = data("p" + std::to_string(i) + ".sm2.der");
    Out raw, again;
    ASSERT_EQ(VorelPKICryptoDecodeSM2Cipher(der.data(), der.size(), &raw.p, &raw.n), VOREL_OK);
    Bytes ct = raw.bytes(), plain;
    ASSERT_EQ(ct.size(), expected.size() + 97);
    ASSERT_EQ(VorelPKICryptoEncodeSM2Cipher(ct.data(), ct.size(), &again.p, &again.n), VOREL_OK);
    EXPECT_EQ(again.bytes(), der);
    ASSERT_EQ(decrypt(kp.get(), VOREL_MECH_SM2_ENCRYPT, ct, &plain), VOREL_OK);
    EXPECT_EQ(plain, expected);
    ct[70] ^= 1;
    EXPECT_EQ(decrypt(kp.get(), VOREL_MECH_SM2_ENCRYPT, ct), VOREL_ERR_DECRYPT);
  }
}

TEST_F(Keys, Sm2EncryptionRoundTripsAndRefusesWhatItCannotRead) {
  Pair kp = import_pair(data("sm2.key.der"), VOREL_KEYPAIR_ENCRYPT);
  Pub pub = public_of(kp);
  Bytes msg = {0, 0, 1, 2, 3}, ct, plain;
  ASSERT_EQ(encrypt(pub.get(), VOREL_MECH_SM2_ENCRYPT, msg, &ct), VOREL_OK);
  EXPECT_EQ(ct.size(), msg.size() + 97);
  EXPECT_EQ(ct[0], 0x04);
  ASSERT_EQ(decrypt(kp.get(), VOREL_MECH_SM2_ENCRYPT, ct, &plain), VOREL_OK);
  EXPECT_EQ(plain, msg);
  Bytes offCurve = ct;
  offCurve[5] ^= 1;
  EXPECT_EQ(decrypt(kp.get(), VOREL_MECH_SM2_ENCRYPT, offCurve), VOREL_ERR_DECRYPT);
  EXPECT_EQ(decrypt(kp.get(), VOREL_MECH_SM2_ENCRYPT, Bytes(ct.begin(), ct.begin() + 97)), VOREL_ERR_DATA_LEN);
  EXPECT_EQ(encrypt(pub.get(), VOREL_MECH_SM2_ENCRYPT, {}), VOREL_ERR_DATA_LEN);
  const int sha1 = VOREL_HASH_SHA1;
  Out out;
  EXPECT_EQ(
      VorelPKICryptoPublicKeyEncrypt(pub.get(), VOREL_MECH_SM2_ENCRYPT, &sha1, msg.data(), msg.size(), &out.p, &out.n),
      VOREL_ERR_NOT_SUPPORTED);
}

TEST_F(Keys, PrivateValueAloneMakesTheWholeKeyPair) {
  // The SKF layer encodes a bare private value; the point is derived from it.
  Pair full = import_pair(data("sm2.key.der"));
  Bytes pkcs8 = exported(full.get());
  unsigned char d[32];
  ASSERT_TRUE(sm2_private_value(pkcs8.data(), pkcs8.size(), d));
  Out bare, z;
  ASSERT_EQ(VorelPKICryptoEncodeECCKeyPair(VOREL_CURVE_SM2, nullptr, 0, nullptr, 0, d, 32, &bare.p, &bare.n), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoPublicKeyEqual(public_of(full).get(), public_of(import_pair(bare.bytes())).get()), 1);
  // Zero and the group order are not private values.
  Bytes zero(32, 0);
  ASSERT_EQ(VorelPKICryptoEncodeECCKeyPair(VOREL_CURVE_SM2, nullptr, 0, nullptr, 0, zero.data(), 32, &z.p, &z.n),
            VOREL_OK);
  Pair refused;
  EXPECT_EQ(VorelPKICryptoImportKeypair(device_, z.p, z.n, VOREL_KEYPAIR_SIGN, vorel::out(refused)),
            VOREL_ERR_BAD_ENCODING);
}

TEST_F(Keys, CertificatesFromOpenSslReadAsOpenSslPrintsThem) {
  for (const char* name : {"sm2", "rsa"}) {
    SCOPED_TRACE(name);
    Bytes der = data(std::string(name) + ".crt.der");
    Cert cert = cert_of(der);
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
      Text text;
      EXPECT_EQ(VorelPKICertGetCertStringAttribute(cert.get(), id, vorel::out(text)), VOREL_OK);
      return std::string(text ? text.get() : "");
    };
    EXPECT_EQ(attr(VOREL_CERT_ATTR_SUBJECT), field("subject"));
    EXPECT_EQ(attr(VOREL_CERT_ATTR_NOT_BEFORE), iso(field("notBefore")));
    EXPECT_EQ(attr(VOREL_CERT_ATTR_NOT_AFTER), iso(field("notAfter")));
    if (std::string(name) == "sm2") {
      EXPECT_EQ(attr(VOREL_CERT_ATTR_SERIAL), "1234");  // -set_serial 0x1234
    }
    EXPECT_EQ(der_of(cert.get()), der);
    Pub certKey;
    ASSERT_EQ(VorelPKICertGetCertPublicKey(cert.get(), VOREL_CERT_PUBLIC_KEY, vorel::out(certKey)), VOREL_OK);
    EXPECT_EQ(VorelPKICryptoPublicKeyEqual(certKey.get(), import_public(data(std::string(name) + ".pub.der")).get()),
              1);
    der.resize(der.size() - 1);
    EXPECT_EQ(cert_of(der), nullptr);
  }
}

TEST_F(Keys, KeyPairsKeepOnlyTheirOwnCertificate) {
  Bytes der = data("sm2.crt.der");
  Cert cert = cert_of(der), rsaCert = cert_of(data("rsa.crt.der")), none, kept;
  Pair owner = import_pair(data("sm2.key.der")), stranger;
  ASSERT_EQ(VorelPKICryptoGenerateKeypair(device_, VOREL_ALG_SM2, 256, 0, VOREL_KEYPAIR_SIGN, vorel::out(stranger)),
            VOREL_OK);
  EXPECT_EQ(VorelPKICryptoGetCertificate(owner.get(), 0, vorel::out(none)), VOREL_ERR_NOT_FOUND);
  EXPECT_EQ(VorelPKICryptoUpdateCertificate(stranger.get(), cert.get()), VOREL_ERR_KEY_MISMATCH);
  EXPECT_EQ(VorelPKICryptoUpdateCertificate(owner.get(), rsaCert.get()), VOREL_ERR_KEY_MISMATCH);
  ASSERT_EQ(VorelPKICryptoUpdateCertificate(owner.get(), cert.get()), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoGetCertificate(owner.get(), 0, vorel::out(kept)), VOREL_OK);
  EXPECT_EQ(der_of(kept.get()), der);
  EXPECT_EQ(VorelPKICryptoGetCertificate(owner.get(), 1, vorel::out(none)), VOREL_ERR_NOT_FOUND);
}

// UTCTime's two-digit years and the century, month and leap-day edges, and the end times of
// certificates openssl made for one and two years.
TEST_F(Keys, EndTimesCompareInCalendarOrder) {
  auto end_of = [](const char* file) {
    Cert cert = cert_of(data(file));
    Text text;
    EXPECT_EQ(VorelPKICertGetCertStringAttribute(cert.get(), VOREL_CERT_ATTR_NOT_AFTER, vorel::out(text)), VOREL_OK);
    return std::string(text ? text.get() : "");
  };
  std::string oneYear = end_of("sm2.crt.der"), twoYears = end_of("sm2-later.crt.der");
  struct Case {
    std::string a, b;
    int expected;
  } cases[] = {
      {oneYear, twoYears, -1},
      {twoYears, oneYear, 1},
      {oneYear, oneYear, 0},
      {"491231235959Z", "500101000000Z", 1},       // 2049 after 1950
      {"20240229000000Z", "20240301000000Z", -1},  // leap day exists in 2024
      {"19991231235959Z", "20000101000000Z", -1},
      {"20301231235959Z", "301231235959Z", 0},
  };
  for (const Case& c : cases) {
    vorel_time *a = vorel_time_newutctime(c.a.c_str()), *b = vorel_time_newutctime(c.b.c_str());
    ASSERT_NE(a, nullptr) << c.a;
    ASSERT_NE(b, nullptr) << c.b;
    EXPECT_EQ(vorel_time_cmp(a, b), c.expected) << c.a << " " << c.b;
    vorel_time_free(a);
    vorel_time_free(b);
  }
  for (const char* bad : {"20230229000000Z", "20241301000000Z", "2024010100000Z", "20240101000000", "", "x"})
    EXPECT_EQ(vorel_time_newutctime(bad), nullptr) << bad;
}

}  // namespace
