// RSA and SM2 through the exports: the blobs, lengths and answers the exports add to the crypto
// library (whose algorithms the crypto suite checks against openssl), over openssl's keys,
// signatures and ciphertexts made at build time. Session keys wrapped for a container too.
#include <cstring>
#include <functional>

#include "crypto/der.h"
#include "device_suite.h"
#include "vorel/vorel_crypto.h"

namespace device {
namespace {

constexpr int S = VOREL_KEYPAIR_SIGN;
constexpr int E = VOREL_KEYPAIR_ENCRYPT;

// The eight numbers of an RSA key pair file, right-aligned into a private key blob.
RSAPRIVATEKEYBLOB rsa_private_blob(const char* keyFile) {
  std::string der = device_data(keyFile);
  unsigned char* numbers[VOREL_RSA_NUMBERS] = {};
  std::size_t lengths[VOREL_RSA_NUMBERS] = {};
  EXPECT_EQ(
      VorelPKICryptoDecodeRSAKeyPair(reinterpret_cast<const unsigned char*>(der.data()), der.size(), numbers, lengths),
      VOREL_OK);
  RSAPRIVATEKEYBLOB blob{};
  blob.AlgID = SGD_RSA;
  blob.BitLen = static_cast<ULONG>(lengths[VOREL_RSA_N] * 8);
  BYTE* fields[] = {blob.Modulus, blob.PublicExponent, blob.PrivateExponent, blob.Prime1,
                    blob.Prime2,  blob.Prime1Exponent, blob.Prime2Exponent,  blob.Coefficient};
  const std::size_t widths[] = {256, 4, 256, 128, 128, 128, 128, 128};
  for (int i = 0; i < VOREL_RSA_NUMBERS; ++i) {
    std::memcpy(fields[i] + widths[i] - lengths[i], numbers[i], lengths[i]);
    VorelPKICryptoFreeMemory(numbers[i]);
  }
  return blob;
}

class Asymmetric : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    make_token(3, "A1", "token",
               {{"s1", S, "S", nullptr},
                {"s2", E, "S", nullptr},
                {"r2", S, "R", nullptr},
                {"r1", E, "R", nullptr},
                {"s3", S, "ALONE", nullptr}});
    dev_ = connect("3#A1");
    char name[] = "VOREL", s[] = "S", r[] = "R", alone[] = "ALONE";
    ASSERT_EQ(SKF_OpenApplication(dev_, name, &app_), kOk);
    ASSERT_EQ(SKF_OpenContainer(app_, s, &sm2_), kOk);
    ASSERT_EQ(SKF_OpenContainer(app_, r, &rsa_), kOk);
    ASSERT_EQ(SKF_OpenContainer(app_, alone, &alone_), kOk);
    login();
  }
  void login() {
    char pin[] = "12345678";
    ULONG retries = 0;
    ASSERT_EQ(SKF_VerifyPIN(app_, USER_TYPE, pin, &retries), kOk);
  }
  // e = SM3(Z || M) for the public key and identity.
  Bytes sm3_with_z(ECCPUBLICKEYBLOB& pub, const std::string& id, Bytes message) {
    HANDLE h = nullptr;
    std::string identity = id;
    EXPECT_EQ(SKF_DigestInit(dev_, SGD_SM3, &pub, reinterpret_cast<BYTE*>(&identity[0]),
                             static_cast<ULONG>(identity.size()), &h),
              kOk);
    Bytes e(32);
    ULONG len = 32;
    EXPECT_EQ(SKF_Digest(h, message.data(), static_cast<ULONG>(message.size()), e.data(), &len), kOk);
    SKF_CloseHandle(h);
    return e;
  }
  template <class Blob>
  Blob public_key(HCONTAINER c, BOOL sign) {
    Blob blob{};
    ULONG len = sizeof blob;
    EXPECT_EQ(SKF_ExportPublicKey(c, sign, reinterpret_cast<BYTE*>(&blob), &len), kOk);
    EXPECT_EQ(len, sizeof blob);
    return blob;
  }
  // What SKF_Encrypt makes of plain96 with a key handle, SM4-ECB without padding.
  Bytes encrypted_with(HANDLE key) {
    Bytes in = bytes(device_data("plain96.bin")), out(128);
    BLOCKCIPHERPARAM p{};
    ULONG len = static_cast<ULONG>(out.size());
    EXPECT_EQ(SKF_EncryptInit(key, p), kOk);
    EXPECT_EQ(SKF_Encrypt(key, in.data(), 96, out.data(), &len), kOk);
    out.resize(len);
    return out;
  }
  DEVHANDLE dev_ = nullptr;
  HAPPLICATION app_ = nullptr;
  HCONTAINER sm2_ = nullptr, rsa_ = nullptr, alone_ = nullptr;
};

TEST_F(Asymmetric, Sm2SignatureBlobs) {
  ECCPUBLICKEYBLOB pub = public_key<ECCPUBLICKEYBLOB>(sm2_, TRUE);
  ECCPUBLICKEYBLOB fromFile = ecc_public_blob(device_data("s1.pub.der"));
  EXPECT_EQ(std::memcmp(&pub, &fromFile, sizeof pub), 0);
  Bytes plain = bytes(device_data("plain.bin"));
  Bytes e = sm3_with_z(pub, "1234567812345678", plain);
  ECCSIGNATUREBLOB sig;
  std::memset(&sig, 0xEE, sizeof sig);
  ASSERT_EQ(SKF_ECCSignData(sm2_, e.data(), 32, &sig), kOk);
  for (std::size_t i : {std::size_t{0}, std::size_t{31}, std::size_t{64}, std::size_t{95}})
    EXPECT_EQ(reinterpret_cast<BYTE*>(&sig)[i], 0) << "byte " << i << " outside r and s";
  EXPECT_EQ(SKF_ECCVerify(dev_, &pub, e.data(), 32, &sig), kOk);

  // openssl's signature under another identity verifies through both verify exports.
  Bytes alice = sm3_with_z(pub, "ALICE123@YAHOO.COM", plain);
  ECCSIGNATUREBLOB theirs{};
  {
    std::string s = device_data("plain.alice.sig");
    using namespace vorel::crypto::der;
    Reader top(reinterpret_cast<const unsigned char*>(s.data()), s.size()), seq;
    const unsigned char *r, *sv;
    std::size_t rn, sn;
    ASSERT_TRUE(top.next(kSequence, seq) && seq.integer(&r, &rn) && seq.integer(&sv, &sn));
    std::memcpy(theirs.r + 64 - rn, r, rn);
    std::memcpy(theirs.s + 64 - sn, sv, sn);
  }
  for (auto verify : {SKF_ECCVerify, SKF_ExtECCVerify}) {
    EXPECT_EQ(verify(dev_, &pub, alice.data(), 32, &theirs), kOk);
    EXPECT_EQ(verify(dev_, &pub, e.data(), 32, &theirs), static_cast<ULONG>(SAR_FAIL));
    EXPECT_EQ(verify(dev_, &pub, alice.data(), 31, &theirs), static_cast<ULONG>(SAR_FAIL));  // passed on, refused
  }
  HANDLE h = nullptr;
  BYTE id[1] = {'x'};
  EXPECT_EQ(SKF_DigestInit(dev_, SGD_SM3, &pub, id, 0, &h), static_cast<ULONG>(SAR_FAIL));  // no default identity

  for (ULONG len : {31u, 33u}) EXPECT_EQ(SKF_ECCSignData(sm2_, plain.data(), len, &sig), SAR_INDATALENERR);
  ASSERT_EQ(SKF_ClearSecureState(app_), kOk);
  EXPECT_EQ(SKF_ECCSignData(sm2_, e.data(), 32, &sig), static_cast<ULONG>(SAR_USER_NOT_LOGGED_IN));
}

// openssl's ciphertexts decrypt; ours decrypt again. Whoever made a ciphertext chose its
// plaintext's length: a buffer too small for it is left as it was and told the size. The buffers
// are exactly their size, for the address sanitizer.
TEST_F(Asymmetric, Sm2CipherBlobs) {
  for (int i = 1; i <= 20; ++i) {
    Bytes blob = ecc_cipher_blob(device_data("sm2ct" + std::to_string(i) + ".der"));
    Bytes expected = bytes(device_data("sm2pt" + std::to_string(i) + ".bin")), out(expected.size() + 16);
    ULONG len = static_cast<ULONG>(out.size());
    ASSERT_EQ(SKF_ECCDecrypt(sm2_, FALSE, reinterpret_cast<ECCCIPHERBLOB*>(blob.data()), out.data(), &len), kOk) << i;
    out.resize(len);
    EXPECT_EQ(out, expected) << "plaintext " << i;
  }
  ECCPUBLICKEYBLOB pub = public_key<ECCPUBLICKEYBLOB>(sm2_, FALSE);
  Bytes plain(1000, 0x5A), blob(sizeof(ECCCIPHERBLOB) + plain.size(), 0xEE);
  auto* ct = reinterpret_cast<ECCCIPHERBLOB*>(blob.data());
  ASSERT_EQ(SKF_ExtECCEncrypt(dev_, &pub, plain.data(), 1000, ct), kOk);
  EXPECT_EQ(ct->CipherLen, 1000u);
  EXPECT_EQ(blob[0], 0);  // the upper half of a coordinate field
  const struct {
    ULONG room;
    bool extension;
    ULONG rc;
  } cases[] = {{16, false, SAR_BUFFER_TOO_SMALL}, {999, false, SAR_BUFFER_TOO_SMALL}, {1000, false, SAR_OK},
               {16, true, SAR_BUFFER_TOO_SMALL},  {1000, true, SAR_OK}};
  for (const auto& c : cases) {
    Bytes out(c.room, 0xA5);
    ULONG len = c.room;
    auto log = log_file();
    ULONG rc = c.extension ? SKFEX_ECCDecrypt(sm2_, 1, ct, out.data(), &len)
                           : SKF_ECCDecrypt(sm2_, FALSE, ct, out.data(), &len);
    EXPECT_EQ(rc, c.rc) << c.room;
    EXPECT_EQ(len, 1000u);
    if (rc == SAR_OK) {
      EXPECT_EQ(out, plain);
    } else {
      EXPECT_EQ(out, Bytes(c.room, 0xA5)) << "a refused decryption wrote into the buffer";
      EXPECT_NE(log.since().find("SKF_ECCDecrypt return: 0x0a000020"), std::string::npos);
    }
  }
  BYTE out[256];
  ULONG len = sizeof out;
  auto log = log_file();
  EXPECT_EQ(SKF_ECCDecrypt(sm2_, TRUE, ct, out, &len), static_cast<ULONG>(SAR_FAIL));  // the signing pair's key
  EXPECT_EQ(SKF_ECCDecrypt(alone_, FALSE, ct, out, &len), static_cast<ULONG>(SAR_KEYNOTFOUNTERR));
  EXPECT_NE(log.since().find("Enc keypair null"), std::string::npos);
  ct->CipherLen = 0x7FFFFFFF;  // never read
  EXPECT_EQ(SKF_ECCDecrypt(sm2_, FALSE, ct, out, &len), static_cast<ULONG>(SAR_FAIL));
}

// A cipher blob is read only once its container is known to be live: with a handle that is not,
// a blob claiming more cipher bytes than it holds is not read (the suite logs at DEBUG, where a
// read blob is dumped whole; the address sanitizer sees any byte read past it).
TEST_F(Asymmetric, ACipherBlobIsReadOnlyForALiveHandle) {
  auto blob = std::make_unique<ECCCIPHERBLOB>();
  blob->CipherLen = 4096;
  static int notAHandle;
  BYTE out[16];
  ULONG len = sizeof out;
  ECCPRIVATEKEYBLOB priv{};
  priv.BitLen = 256;
  EXPECT_EQ(SKF_ECCDecrypt(&notAHandle, FALSE, blob.get(), out, &len), static_cast<ULONG>(SAR_INVALIDHANDLEERR));
  EXPECT_EQ(SKFEX_ECCDecrypt(&notAHandle, 1, blob.get(), out, &len), static_cast<ULONG>(SAR_INVALIDHANDLEERR));
  EXPECT_EQ(SKF_ExtECCDecrypt(&notAHandle, &priv, blob.get(), out, &len), static_cast<ULONG>(SAR_INVALIDHANDLEERR));
}

// Session keys travel wrapped to a container's encryption pair: openssl's wrappings import as the
// key openssl wrapped, and a key the exports wrap imports again as the key they handed out.
TEST_F(Asymmetric, SessionKeysWrappedForAContainer) {
  auto import = [](HCONTAINER c, ULONG alg, const Bytes& wrapped, HANDLE* h) {
    return SKF_ImportSessionKey(c, alg, const_cast<BYTE*>(wrapped.data()), static_cast<ULONG>(wrapped.size()), h);
  };
  Bytes rsa16 = bytes(device_data("key16.r1.bin")), sm2Blob16 = ecc_cipher_blob(device_data("key16.s2.der"));
  HANDLE h = nullptr;
  for (auto [c, wrapped] : {std::make_pair(rsa_, &rsa16), std::make_pair(sm2_, &sm2Blob16)}) {
    ASSERT_EQ(import(c, SGD_SMS4_ECB, *wrapped, &h), kOk);
    EXPECT_EQ(encrypted_with(h), bytes(device_data("sm4-ecb.nopad.bin")));  // the key is 0123..3210
  }
  EXPECT_EQ(import(sm2_, SGD_SMS4_CBC, ecc_cipher_blob(device_data("key24.s2.der")), &h), kOk);  // 24 bytes kept

  ECCPUBLICKEYBLOB recipient = public_key<ECCPUBLICKEYBLOB>(sm2_, FALSE);  // s2's
  Bytes blob(sizeof(ECCCIPHERBLOB) + 32, 0);
  auto* ct = reinterpret_cast<ECCCIPHERBLOB*>(blob.data());
  HANDLE key = nullptr;
  ASSERT_EQ(SKF_ECCExportSessionKey(sm2_, SGD_SMS4_ECB, &recipient, ct, &key), kOk);
  EXPECT_EQ(ct->CipherLen, 16u);
  ASSERT_EQ(import(sm2_, SGD_SMS4_ECB, Bytes(blob.begin(), blob.begin() + offsetof(ECCCIPHERBLOB, Cipher) + 16), &h),
            kOk);
  EXPECT_EQ(encrypted_with(key), encrypted_with(h));
  ASSERT_EQ(SKF_ECCExportSessionKey(sm2_, SGD_3DES_CBC, &recipient, ct, &key), kOk);
  EXPECT_EQ(ct->CipherLen, 24u);

  RSAPUBLICKEYBLOB rsaRecipient = public_key<RSAPUBLICKEYBLOB>(rsa_, FALSE);  // r1's
  Bytes wrapped(256);
  ULONG wrappedLen = 0;
  HANDLE rsaKey = nullptr;
  ASSERT_EQ(SKF_RSAExportSessionKey(rsa_, SGD_SMS4_ECB, &rsaRecipient, nullptr, &wrappedLen, &rsaKey), kOk);
  EXPECT_EQ(wrappedLen, 128u);
  EXPECT_EQ(rsaKey, nullptr);  // a size query makes no key
  ASSERT_EQ(SKF_RSAExportSessionKey(rsa_, SGD_SMS4_ECB, &rsaRecipient, wrapped.data(), &wrappedLen, &rsaKey), kOk);
  wrapped.resize(wrappedLen);
  ASSERT_EQ(import(rsa_, SGD_SMS4_ECB, wrapped, &h), kOk);
  EXPECT_EQ(encrypted_with(rsaKey), encrypted_with(h));

  auto log = log_file();
  EXPECT_EQ(import(alone_, SGD_SMS4_ECB, sm2Blob16, &h), static_cast<ULONG>(SAR_KEYNOTFOUNTERR));
  EXPECT_EQ(import(sm2_, SGD_SM1_ECB, sm2Blob16, &h), static_cast<ULONG>(SAR_FAIL));
  std::string text = log.since();
  EXPECT_NE(text.find("Enc keypair not exist"), std::string::npos);
  EXPECT_NE(text.find("ulAlgId unsupported"), std::string::npos);
  // A CipherLen beyond what the structures carry, or beyond the data given, is refused unread.
  Bytes big(offsetof(ECCCIPHERBLOB, Cipher) + 166, 0);
  reinterpret_cast<ECCCIPHERBLOB*>(big.data())->CipherLen = 166;
  EXPECT_EQ(import(sm2_, SGD_SMS4_ECB, big, &h), static_cast<ULONG>(SAR_INVALIDPARAMERR));
  EXPECT_EQ(import(sm2_, SGD_SMS4_ECB, Bytes(sm2Blob16.begin(), sm2Blob16.end() - 1), &h),
            static_cast<ULONG>(SAR_INVALIDPARAMERR));
  Bytes tampered = sm2Blob16;
  tampered.back() ^= 1;
  EXPECT_EQ(import(sm2_, SGD_SMS4_ECB, tampered, &h), static_cast<ULONG>(SAR_FAIL));
  ASSERT_EQ(SKF_ClearSecureState(app_), kOk);
  EXPECT_EQ(import(sm2_, SGD_SMS4_ECB, sm2Blob16, &h), static_cast<ULONG>(SAR_USER_NOT_LOGGED_IN));
}

TEST_F(Asymmetric, RsaAgreesWithOpenssl) {
  Bytes data = bytes(device_data("plain64.bin")), sig(128);
  ULONG len = 0;
  ASSERT_EQ(SKF_RSASignData(rsa_, data.data(), 64, nullptr, &len), kOk);
  EXPECT_EQ(len, 128u);
  len = 127;
  EXPECT_EQ(SKF_RSASignData(rsa_, data.data(), 64, sig.data(), &len), static_cast<ULONG>(SAR_BUFFER_TOO_SMALL));
  len = 128;
  ASSERT_EQ(SKF_RSASignData(rsa_, data.data(), 64, sig.data(), &len), kOk);
  EXPECT_EQ(sig, bytes(device_data("plain64.r2.sig")));  // PKCS#1 v1.5 is deterministic
  RSAPUBLICKEYBLOB signer = public_key<RSAPUBLICKEYBLOB>(rsa_, TRUE), r1 = public_key<RSAPUBLICKEYBLOB>(rsa_, FALSE);
  EXPECT_EQ(SKF_RSAVerify(dev_, &signer, data.data(), 64, sig.data(), 128), kOk);
  data[0] ^= 1;
  EXPECT_EQ(SKF_RSAVerify(dev_, &signer, data.data(), 64, sig.data(), 128), static_cast<ULONG>(SAR_FAIL));
  Bytes big(118, 1);
  len = 128;
  EXPECT_EQ(SKF_RSASignData(rsa_, big.data(), 117, sig.data(), &len), kOk);
  EXPECT_EQ(SKF_RSASignData(rsa_, big.data(), 118, sig.data(), &len), static_cast<ULONG>(SAR_INDATALENERR));

  // Raw operations equal openssl's raw RSA.
  Bytes block = bytes(device_data("block.bin")), raw = bytes(device_data("block.r1.raw")), out(256);
  len = static_cast<ULONG>(out.size());
  ASSERT_EQ(SKF_ExtRSAPubKeyOperation(dev_, &r1, block.data(), 128, out.data(), &len), kOk);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + len), raw);
  RSAPRIVATEKEYBLOB priv = rsa_private_blob("r1.der");
  len = static_cast<ULONG>(out.size());
  ASSERT_EQ(SKF_ExtRSAPriKeyOperation(dev_, &priv, raw.data(), 128, out.data(), &len), kOk);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + len), block);

  // Verification looks at 00 01 in front and the data at the end, not at the filler between.
  Bytes lax(128, 0x5A), msg(20, 0x33);
  lax[0] = 0x00;
  lax[1] = 0x01;
  std::copy(msg.begin(), msg.end(), lax.end() - 20);
  len = static_cast<ULONG>(out.size());
  ASSERT_EQ(SKF_ExtRSAPriKeyOperation(dev_, &priv, lax.data(), 128, out.data(), &len), kOk);
  EXPECT_EQ(SKF_RSAVerify(dev_, &r1, msg.data(), 20, out.data(), len), kOk);
  lax[1] = 0x02;
  len = static_cast<ULONG>(out.size());
  ASSERT_EQ(SKF_ExtRSAPriKeyOperation(dev_, &priv, lax.data(), 128, out.data(), &len), kOk);
  EXPECT_EQ(SKF_RSAVerify(dev_, &r1, msg.data(), 20, out.data(), len), static_cast<ULONG>(SAR_FAIL));

  // Key transport: openssl's wrapping to the encryption pair decrypts, whichever pair the caller
  // names; the input must be the key's size.
  Bytes wrapped = bytes(device_data("key16.r1.bin"));
  const std::function<ULONG(BYTE*, ULONG*)> decryptions[] = {
      [&](BYTE* o, ULONG* l) { return SKF_RSADecrypt(rsa_, FALSE, wrapped.data(), 128, o, l); },
      [&](BYTE* o, ULONG* l) { return SKF_RSADecrypt(rsa_, TRUE, wrapped.data(), 128, o, l); },
      [&](BYTE* o, ULONG* l) { return SKFEX_RSADecrypt(rsa_, wrapped.data(), 128, o, l, 2); },
  };
  for (const auto& decrypt : decryptions) {
    len = 0;
    ASSERT_EQ(decrypt(nullptr, &len), kOk);
    EXPECT_EQ(len, 16u);
    ASSERT_EQ(decrypt(out.data(), &len), kOk);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + len), unhex("0123456789abcdeffedcba9876543210"));
  }
  EXPECT_EQ(SKF_RSADecrypt(rsa_, FALSE, wrapped.data(), 127, out.data(), &len), static_cast<ULONG>(SAR_INDATALENERR));
  EXPECT_EQ(SKF_RSADecrypt(alone_, FALSE, wrapped.data(), 128, out.data(), &len),
            static_cast<ULONG>(SAR_KEYNOTFOUNTERR));
}

TEST_F(Asymmetric, KeyBlobs) {
  RSAPUBLICKEYBLOB rsa{};
  ULONG len = 267;
  EXPECT_EQ(SKF_ExportPublicKey(rsa_, TRUE, reinterpret_cast<BYTE*>(&rsa), &len),
            static_cast<ULONG>(SAR_BUFFER_TOO_SMALL));
  EXPECT_EQ(len, 268u);
  rsa = public_key<RSAPUBLICKEYBLOB>(rsa_, TRUE);
  EXPECT_EQ(rsa.AlgID, static_cast<ULONG>(SGD_RSA));
  EXPECT_EQ(rsa.BitLen, 1024u);
  EXPECT_EQ(Bytes(rsa.Modulus, rsa.Modulus + 128), Bytes(128, 0));
  EXPECT_NE(rsa.Modulus[128], 0);
  EXPECT_EQ(Bytes(rsa.PublicExponent, rsa.PublicExponent + 4), (Bytes{0, 1, 0, 1}));
  ECCPUBLICKEYBLOB ecc{};
  len = 131;
  EXPECT_EQ(SKF_ExportPublicKey(sm2_, TRUE, reinterpret_cast<BYTE*>(&ecc), &len),
            static_cast<ULONG>(SAR_BUFFER_TOO_SMALL));
  EXPECT_EQ(len, 132u);

  RSAPRIVATEKEYBLOB generated{};
  for (ULONG bits : {512u, 1536u, 3072u}) EXPECT_EQ(SKF_GenExtRSAKey(dev_, bits, &generated), SAR_INVALIDPARAMERR);
  ASSERT_EQ(SKF_GenExtRSAKey(dev_, 1024, &generated), kOk);
  EXPECT_EQ(generated.BitLen, 1024u);
  EXPECT_EQ(Bytes(generated.Modulus, generated.Modulus + 128), Bytes(128, 0));
  // The numbers make a key: p·q = n and d·e ≡ 1, as openssl checks them.
  vorel::crypto::der::Writer w;
  w.sequence([&](vorel::crypto::der::Writer& seq) {
    seq.small_integer(0);
    const std::pair<const BYTE*, std::size_t> fields[] = {
        {generated.Modulus, 256},        {generated.PublicExponent, 4}, {generated.PrivateExponent, 256},
        {generated.Prime1, 128},         {generated.Prime2, 128},       {generated.Prime1Exponent, 128},
        {generated.Prime2Exponent, 128}, {generated.Coefficient, 128}};
    for (const auto& f : fields) seq.integer(f.first, f.second);
  });
  openssl({"rsa", "-inform", "DER", "-in", "IN", "-check", "-noout"}, std::string(w.bytes().begin(), w.bytes().end()));
}

// What the crypto library cannot do, emulated devices answer as not emulated; no key pair is
// made from a caller's private key.
TEST_F(Asymmetric, WhatEmulatedDevicesDoNotDo) {
  BYTE buf[512] = {};
  ECCPUBLICKEYBLOB pub = public_key<ECCPUBLICKEYBLOB>(sm2_, TRUE);
  ECCPRIVATEKEYBLOB priv{};
  priv.BitLen = 256;
  priv.PrivateKey[63] = 7;
  ECCSIGNATUREBLOB sig{};
  ENVELOPEDKEYBLOB envelope{};
  RSAPUBLICKEYBLOB rsaBlob{};
  ULONG len = sizeof buf;
  HANDLE h = nullptr;
  char name[] = "VOREL", pin[] = "12345678";
  const std::function<ULONG()> notEmulated[] = {
      [&] { return SKF_GenRSAKeyPair(rsa_, 1024, &rsaBlob); },
      [&] { return SKF_ImportRSAKeyPair(rsa_, SGD_SMS4_ECB, buf, 16, buf, 16); },
      [&] { return SKF_GenECCKeyPair(sm2_, SGD_SM2_1, &pub); },
      [&] { return SKF_ImportECCKeyPair(sm2_, &envelope); },
      [&] { return SKF_GenerateAgreementDataWithECC(sm2_, SGD_SMS4_ECB, &pub, buf, 16, &h); },
      [&] {
        return SKF_GenerateAgreementDataAndKeyWithECC(sm2_, SGD_SMS4_ECB, &pub, &pub, &pub, buf, 16, buf, 16, &h);
      },
      [&] { return SKF_GenerateKeyWithECC(nullptr, nullptr, nullptr, nullptr, 0, nullptr); },
      [&] { return SKF_Transmit(dev_, buf, 4, buf, &len); },
      [&] { return SKF_DevAuth(dev_, buf, 16); },
      [&] { return SKF_ChangeDevAuthKey(dev_, buf, 16); },
      [&] { return SKF_CreateApplication(dev_, name, pin, 6, pin, 6, 1, &h); },
      [&] { return SKF_DeleteApplication(dev_, name); },
      [&] { return SKF_CreateContainer(app_, name, &h); },
      [&] { return SKF_DeleteContainer(app_, name); },
  };
  auto log = log_file();
  int row = 0;
  for (const auto& call : notEmulated) EXPECT_EQ(call(), static_cast<ULONG>(SAR_NOT_EMULATED)) << "row " << row++;
  for (const char* line : {"SKF_Transmit return: 0x0a000034", "SKF_DevAuth return: 0x0a000034"})
    EXPECT_NE(log.since().find(line), std::string::npos) << line;
  EXPECT_EQ(SKF_ExtECCSign(dev_, &priv, buf, 32, &sig), static_cast<ULONG>(SAR_FAIL));
  auto* ct = reinterpret_cast<ECCCIPHERBLOB*>(buf);
  EXPECT_EQ(SKF_ExtECCDecrypt(dev_, &priv, ct, buf, &len), static_cast<ULONG>(SAR_FAIL));
  for (std::string f : {"SKF_ExtECCSign", "SKF_ExtECCDecrypt"})
    EXPECT_NE(log.since().find("[ERROR] [" + f + "] " + f + " fail, error : 0x0a000001"), std::string::npos) << f;
  priv.BitLen = 255;
  EXPECT_EQ(SKF_ExtECCSign(dev_, &priv, buf, 32, &sig), static_cast<ULONG>(SAR_INVALIDPARAMERR));
  EXPECT_NE(log.since().find("pECCPriKeyBlob->BitLen != 256"), std::string::npos);
}

}  // namespace
}  // namespace device
