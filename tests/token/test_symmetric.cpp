// Session keys, block ciphers, digests and MACs, checked against what openssl made at build time.
#include <cstring>
#include <functional>

#include "device_suite.h"
#include "vorel/vorel_crypto.h"

namespace device {
namespace {

const char kKey16[] = "0123456789abcdeffedcba9876543210";
const char kKey24[] = "0123456789abcdeffedcba98765432100011223344556677";
const char kIv[] = "000102030405060708090a0b0c0d0e0f";

class Symmetric : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    make_token(3, "T1");
    dev_ = connect("3#T1");
  }
  HANDLE key(ULONG alg, const char* hexKey = kKey16) {
    Bytes k = unhex(hexKey);
    k.resize(32);
    HANDLE h = nullptr;
    EXPECT_EQ(SKF_SetSymmKey(dev_, k.data(), alg, &h), kOk) << alg;
    return h;
  }
  static BLOCKCIPHERPARAM param(ULONG padding, const char* iv = kIv) {
    BLOCKCIPHERPARAM p{};
    Bytes v = iv ? unhex(iv) : Bytes();
    if (!v.empty()) std::memcpy(p.IV, v.data(), v.size());
    p.IVLen = static_cast<ULONG>(v.size());
    p.PaddingType = padding;
    return p;
  }
  // One-shot encryption or decryption.
  Bytes run(HANDLE k, bool encrypt, const BLOCKCIPHERPARAM& p, Bytes in) {
    Bytes out(in.size() + 32);
    ULONG len = static_cast<ULONG>(out.size());
    if (encrypt) {
      EXPECT_EQ(SKF_EncryptInit(k, p), kOk);
      EXPECT_EQ(SKF_Encrypt(k, in.data(), static_cast<ULONG>(in.size()), out.data(), &len), kOk);
    } else {
      EXPECT_EQ(SKF_DecryptInit(k, p), kOk);
      EXPECT_EQ(SKF_Decrypt(k, in.data(), static_cast<ULONG>(in.size()), out.data(), &len), kOk);
    }
    out.resize(len);
    return out;
  }
  // The same in pieces of 7, 33 and the rest, then the final block.
  Bytes run_in_parts(HANDLE k, bool encrypt, const BLOCKCIPHERPARAM& p, const Bytes& in) {
    auto update = encrypt ? SKF_EncryptUpdate : SKF_DecryptUpdate;
    EXPECT_EQ((encrypt ? SKF_EncryptInit : SKF_DecryptInit)(k, p), kOk);
    Bytes out;
    std::size_t at = 0;
    for (std::size_t piece : {std::size_t{7}, std::size_t{33}, in.size() - 40}) {
      BYTE buf[256];
      ULONG len = sizeof buf;
      EXPECT_EQ(update(k, const_cast<BYTE*>(in.data() + at), static_cast<ULONG>(piece), buf, &len), kOk);
      out.insert(out.end(), buf, buf + len);
      at += piece;
    }
    BYTE last[32];
    ULONG len = sizeof last;
    EXPECT_EQ((encrypt ? SKF_EncryptFinal : SKF_DecryptFinal)(k, last, &len), kOk);
    out.insert(out.end(), last, last + len);
    return out;
  }
  DEVHANDLE dev_ = nullptr;
};

TEST_F(Symmetric, CiphersAgreeWithOpenssl) {
  const struct {
    const char* name;
    ULONG alg;
    const char* key;
    const char* iv;
  } cases[] = {
      {"sm4-ecb", SGD_SMS4_ECB, kKey16, nullptr},   {"sm4-cbc", SGD_SMS4_CBC, kKey16, kIv},
      {"aes-ecb", SGD_AES128_ECB, kKey16, nullptr}, {"aes-cbc", SGD_AES128_CBC, kKey16, kIv},
      {"des-ecb", SGD_DES_ECB, kKey16, nullptr},    {"des-cbc", SGD_DES_CBC, kKey16, "0001020304050607"},
      {"3des-ecb", SGD_3DES_ECB, kKey16, nullptr},  {"3des-cbc", SGD_3DES_CBC, kKey24, "0001020304050607"},
  };
  Bytes plain = bytes(device_data("plain.bin")), plain96 = bytes(device_data("plain96.bin"));
  for (const auto& c : cases) {
    HANDLE k = key(c.alg, c.key);
    Bytes padded = bytes(device_data(std::string(c.name) + ".pad.bin"));
    Bytes bare = bytes(device_data(std::string(c.name) + ".nopad.bin"));
    // The IV field holds a block for every CBC form; its length only has to be there.
    BLOCKCIPHERPARAM withPad = param(1, c.iv), noPad = param(0, c.iv);
    EXPECT_EQ(run(k, true, withPad, plain), padded) << c.name;
    EXPECT_EQ(run(k, true, noPad, plain96), bare) << c.name;
    EXPECT_EQ(run(k, false, withPad, padded), plain) << c.name;
    EXPECT_EQ(run_in_parts(k, true, withPad, plain), padded) << c.name << " in parts";
    EXPECT_EQ(run_in_parts(k, false, withPad, padded), plain) << c.name << " in parts";
    EXPECT_EQ(run_in_parts(k, false, noPad, bare), plain96) << c.name << " in parts";
    EXPECT_EQ(SKF_CloseHandle(k), kOk);
  }
  // GB/T 32907 example 1.
  HANDLE k = key(SGD_SMS4_ECB);
  EXPECT_EQ(run(k, true, param(0, nullptr), unhex(kKey16)), unhex("681edf34d206965e86b3e94f536e4246"));
}

TEST_F(Symmetric, CipherRules) {
  HANDLE cbc = key(SGD_SMS4_CBC), desCbc = key(SGD_DES_CBC), ecb = key(SGD_SMS4_ECB);
  auto helperLog = log_file();
  EXPECT_EQ(SKF_EncryptInit(cbc, param(0, nullptr)), static_cast<ULONG>(SAR_FAIL));  // a CBC key needs its IV
  EXPECT_NE(helperLog.since().find("[CipherInit] CipherInit return: 0x0a000001"), std::string::npos);
  EXPECT_EQ(SKF_EncryptInit(desCbc, param(0, nullptr)), kOk);                        // except DES
  // Any PaddingType but 0 pads.
  Bytes plain = bytes(device_data("plain.bin"));
  EXPECT_EQ(run(ecb, true, param(7, nullptr), plain), bytes(device_data("sm4-ecb.pad.bin")));

  // The final block is kept: asked again after a short buffer it is the same.
  ASSERT_EQ(SKF_EncryptInit(ecb, param(1, nullptr)), kOk);
  BYTE out[128];
  ULONG len = sizeof out;
  ASSERT_EQ(SKF_EncryptUpdate(ecb, plain.data(), 100, out, &len), kOk);
  EXPECT_EQ(len, 96u);
  BYTE last[16], again[16];
  len = 8;
  EXPECT_EQ(SKF_EncryptFinal(ecb, last, &len), static_cast<ULONG>(SAR_BUFFER_TOO_SMALL));
  EXPECT_EQ(len, 16u);
  ASSERT_EQ(SKF_EncryptFinal(ecb, last, &len), kOk);
  ASSERT_EQ(SKF_EncryptFinal(ecb, again, &len), kOk);
  EXPECT_EQ(0, std::memcmp(last, again, 16));
  Bytes padded = bytes(device_data("sm4-ecb.pad.bin"));
  EXPECT_EQ(Bytes(last, last + 16), Bytes(padded.begin() + 96, padded.end()));

  // A short buffer for an update reports the size; the input is consumed.
  ASSERT_EQ(SKF_EncryptInit(ecb, param(0, nullptr)), kOk);
  len = 16;
  EXPECT_EQ(SKF_EncryptUpdate(ecb, plain.data(), 32, out, &len), static_cast<ULONG>(SAR_BUFFER_TOO_SMALL));
  EXPECT_EQ(len, 32u);

  HANDLE hash = nullptr;
  ASSERT_EQ(SKF_DigestInit(dev_, SGD_SM3, nullptr, nullptr, 0, &hash), kOk);
  len = sizeof out;
  const struct {
    const char* what;
    std::function<ULONG()> call;
    ULONG rc;
    const char* line;  // the helper's own return line, where one is written
  } refused[] = {
      {"a hash handle as key", [&] { return SKF_EncryptInit(hash, param(1)); }, SAR_FAIL,
       "CipherInit return: 0x0a000001"},
      {"a hash handle to encrypt", [&] { return SKF_Encrypt(hash, plain.data(), 16, out, &len); }, SAR_FAIL,
       "[Cipher] Cipher return: 0x0a000001"},
      {"a hash handle to finish", [&] { return SKF_DecryptFinal(hash, out, &len); }, SAR_FAIL,
       "CipherFinal return: 0x0a000001"},
      {"a null output", [&] { return SKF_Decrypt(ecb, plain.data(), 16, nullptr, &len); }, SAR_INVALIDHANDLEERR,
       nullptr},
      {"a null length", [&] { return SKF_EncryptFinal(ecb, out, nullptr); }, SAR_INVALIDHANDLEERR, nullptr},
      {"a device handle", [&] { return SKF_EncryptUpdate(dev_, plain.data(), 16, out, &len); }, SAR_INVALIDHANDLEERR,
       nullptr},
  };
  for (const auto& r : refused) {
    auto log = log_file();
    EXPECT_EQ(r.call(), r.rc) << r.what;
    if (r.line) {
      EXPECT_NE(log.since().find(r.line), std::string::npos) << r.what;
    }
  }
}

TEST_F(Symmetric, KeysFromTheCaller) {
  auto log = log_file();
  Bytes k(32, 1);
  HANDLE h = nullptr;
  EXPECT_EQ(SKF_SetSymmKey(dev_, k.data(), 0x103, &h), static_cast<ULONG>(SAR_INVALIDPARAMERR));
  EXPECT_NE(log.since().find("[ERROR] [CheckSymAlgo] Error Symm algo"), std::string::npos);
  // SM1 and SSF33 keys are kept; the software device runs neither.
  EXPECT_EQ(SKF_SetSymmKey(dev_, k.data(), SGD_SM1_ECB, &h), kOk);
  EXPECT_EQ(SKF_EncryptInit(h, param(0, nullptr)), static_cast<ULONG>(SAR_FAIL));
}

TEST_F(Symmetric, DigestsAgreeWithOpenssl) {
  Bytes plain = bytes(device_data("plain.bin"));
  const struct {
    ULONG alg;
    const char* file;
  } cases[] = {{SGD_SM3, "plain.sm3"}, {SGD_SHA1, "plain.sha1"}, {SGD_SHA256, "plain.sha256"}};
  for (const auto& c : cases) {
    Bytes expected = bytes(device_data(c.file));
    HANDLE one = nullptr, parts = nullptr;
    ASSERT_EQ(SKF_DigestInit(dev_, c.alg, nullptr, nullptr, 0, &one), kOk);
    ULONG len = 0;
    ASSERT_EQ(SKF_Digest(one, plain.data(), 100, nullptr, &len), kOk);
    EXPECT_EQ(len, expected.size());
    len = 19;
    EXPECT_EQ(SKF_Digest(one, plain.data(), 100, plain.data(), &len), static_cast<ULONG>(SAR_BUFFER_TOO_SMALL));
    Bytes out(len);
    ASSERT_EQ(SKF_Digest(one, plain.data(), 100, out.data(), &len), kOk);  // nothing was hashed before
    EXPECT_EQ(out, expected) << c.file;

    ASSERT_EQ(SKF_DigestInit(dev_, c.alg, nullptr, nullptr, 0, &parts), kOk);
    ASSERT_EQ(SKF_DigestUpdate(parts, plain.data(), 33), kOk);
    ASSERT_EQ(SKF_DigestUpdate(parts, plain.data() + 33, 67), kOk);
    len = static_cast<ULONG>(out.size());
    ASSERT_EQ(SKF_DigestFinal(parts, out.data(), &len), kOk);
    EXPECT_EQ(out, expected) << c.file << " in parts";
  }
  HANDLE h = nullptr;
  EXPECT_EQ(SKF_DigestInit(dev_, 3, nullptr, nullptr, 0, &h), static_cast<ULONG>(SAR_FAIL));
}

// SM3 with a signer's public key and identity hashes Z first: the digest is the e that openssl
// signed with that identity.
TEST_F(Symmetric, DigestWithZVerifiesOpensslsSignature) {
  std::string spki = device_data("s1.pub.der"), sig = device_data("plain.alice.sig");
  Bytes plain = bytes(device_data("plain.bin"));
  unsigned char *x = nullptr, *y = nullptr;
  std::size_t xn = 0, yn = 0;
  int curve = 0;
  ASSERT_EQ(VorelPKICryptoDecodeECCPubKey(reinterpret_cast<const unsigned char*>(spki.data()), spki.size(), &curve, &x,
                                          &xn, &y, &yn),
            VOREL_OK);
  ECCPUBLICKEYBLOB blob{};
  blob.BitLen = 256;
  std::memcpy(blob.XCoordinate + 32, x, 32);
  std::memcpy(blob.YCoordinate + 32, y, 32);
  VorelPKICryptoFreeMemory(x);
  VorelPKICryptoFreeMemory(y);
  VOREL_DEVICE* pseudo = nullptr;
  VorelPKICryptoGetPseudoDevice(&pseudo);
  VOREL_PUBLICKEY* pub = nullptr;
  ASSERT_EQ(
      VorelPKICryptoImportPublicKey(pseudo, reinterpret_cast<const unsigned char*>(spki.data()), spki.size(), &pub),
      VOREL_OK);
  for (const char* id : {"ALICE123@YAHOO.COM", "1234567812345678"}) {
    std::string identity = id;
    HANDLE h = nullptr;
    ASSERT_EQ(SKF_DigestInit(dev_, SGD_SM3, &blob, reinterpret_cast<BYTE*>(&identity[0]),
                             static_cast<ULONG>(identity.size()), &h),
              kOk);
    BYTE e[32];
    ULONG len = sizeof e;
    ASSERT_EQ(SKF_Digest(h, plain.data(), 100, e, &len), kOk);
    int verified = VorelPKICryptoVerifyHash(pub, VOREL_MECH_SM2_SIGN, nullptr, e, 32,
                                            reinterpret_cast<const unsigned char*>(sig.data()), sig.size());
    EXPECT_EQ(verified, identity[0] == 'A' ? VOREL_OK : VOREL_ERR_BAD_SIGNATURE) << id;
  }
  VorelPKICryptoFreePublicKey(pub);
  VorelPKICryptoFreeDevice(pseudo);
  HANDLE h = nullptr;
  BYTE id[1] = {'x'};
  EXPECT_EQ(SKF_DigestInit(dev_, SGD_SM3, &blob, id, 0, &h), static_cast<ULONG>(SAR_FAIL));  // no default identity
}

TEST_F(Symmetric, MacIsTheLastBlockOfCbc) {
  Bytes data = bytes(device_data("plain96.bin")), cbc = bytes(device_data("sm4-cbc.nopad.bin"));
  HANDLE k = key(SGD_SMS4_CBC);
  BLOCKCIPHERPARAM p = param(0);
  auto mac_over = [&](std::size_t n) {
    HANDLE m = nullptr;
    EXPECT_EQ(SKF_MacInit(k, &p, &m), kOk);
    BYTE out[16];
    ULONG len = sizeof out;
    EXPECT_EQ(SKF_Mac(m, data.data(), static_cast<ULONG>(n), out, &len), kOk);
    SKF_CloseHandle(m);
    return Bytes(out, out + 16);
  };
  EXPECT_EQ(mac_over(32), Bytes(cbc.begin() + 16, cbc.begin() + 32));
  EXPECT_EQ(mac_over(96), Bytes(cbc.end() - 16, cbc.end()));

  HANDLE m = nullptr;
  ASSERT_EQ(SKF_MacInit(k, &p, &m), kOk);
  ASSERT_EQ(SKF_MacUpdate(m, data.data(), 20), kOk);
  ASSERT_EQ(SKF_MacUpdate(m, data.data() + 20, 12), kOk);
  BYTE out[16];
  ULONG len = 8;
  EXPECT_EQ(SKF_MacFinal(m, out, &len), static_cast<ULONG>(SAR_BUFFER_TOO_SMALL));
  EXPECT_EQ(len, 16u);
  ASSERT_EQ(SKF_MacFinal(m, out, &len), kOk);
  EXPECT_EQ(Bytes(out, out + 16), Bytes(cbc.begin() + 16, cbc.begin() + 32));

  HANDLE fresh = nullptr;
  ASSERT_EQ(SKF_MacInit(k, &p, &fresh), kOk);
  ASSERT_EQ(SKF_MacFinal(fresh, out, &len), kOk);
  EXPECT_EQ(Bytes(out, out + 16), Bytes(16, 0));  // nothing given: the zero block

  HANDLE ecb = key(SGD_SMS4_ECB), aes = key(SGD_AES128_CBC), hash = nullptr;
  ASSERT_EQ(SKF_DigestInit(dev_, SGD_SM3, nullptr, nullptr, 0, &hash), kOk);
  BLOCKCIPHERPARAM longIv = param(0);
  longIv.IVLen = 32;
  HANDLE none = nullptr;
  const struct {
    std::function<ULONG()> call;
    const char* logged;
  } refused[] = {
      {[&] { return SKF_MacInit(k, &longIv, &none); }, "pMacParam->IVLen != 16"},
      {[&] { return SKF_MacInit(ecb, &p, &none); }, "Error algo"},
      {[&] { return SKF_MacInit(aes, &p, &none); }, "Error algo"},
      {[&] { return SKF_MacInit(hash, &p, &none); }, "key_handle->m_flag != 1"},
      {[&] { return SKF_Mac(fresh, data.data(), 20, out, &len); }, "ulDataLen % 16 != 0"},
      {[&] { return SKF_MacUpdate(k, data.data(), 16); }, "mac_handle->m_flag != 4"},
      {[&] { return SKF_DigestUpdate(fresh, data.data(), 16); }, "hHash is not a hash handle"},
  };
  for (const auto& r : refused) {
    auto log = log_file();
    EXPECT_EQ(r.call(), static_cast<ULONG>(SAR_FAIL)) << r.logged;
    EXPECT_NE(log.since().find(r.logged), std::string::npos) << r.logged;
  }
  EXPECT_EQ(none, nullptr);
}

TEST_F(Symmetric, SessionKeysWrappedByOpensslForAContainer) {
  make_token(3, "W1", "token",
             {{"r2", VOREL_KEYPAIR_SIGN, "R", nullptr},
              {"r1", VOREL_KEYPAIR_ENCRYPT, "R", nullptr},
              {"s1", VOREL_KEYPAIR_SIGN, "S", nullptr},
              {"s2", VOREL_KEYPAIR_ENCRYPT, "S", nullptr},
              {"s3", VOREL_KEYPAIR_SIGN, "ALONE", nullptr}});
  DEVHANDLE dev = connect("3#W1");
  char name[] = "VOREL", pin[] = "12345678";
  HAPPLICATION app = nullptr;
  ASSERT_EQ(SKF_OpenApplication(dev, name, &app), kOk);
  HCONTAINER rsa = nullptr, sm2 = nullptr, alone = nullptr;
  char r[] = "R", s[] = "S", a[] = "ALONE";
  ASSERT_EQ(SKF_OpenContainer(app, r, &rsa), kOk);
  ASSERT_EQ(SKF_OpenContainer(app, s, &sm2), kOk);
  ASSERT_EQ(SKF_OpenContainer(app, a, &alone), kOk);
  Bytes rsa16 = bytes(device_data("key16.r1.bin")), sm2Blob16 = ecc_cipher_blob(device_data("key16.s2.der"));
  Bytes sm2Blob24 = ecc_cipher_blob(device_data("key24.s2.der"));
  auto import = [](HCONTAINER c, ULONG alg, Bytes& wrapped, HANDLE* h) {
    return SKF_ImportSessionKey(c, alg, wrapped.data(), static_cast<ULONG>(wrapped.size()), h);
  };
  HANDLE h = nullptr;
  EXPECT_EQ(import(sm2, SGD_SMS4_ECB, sm2Blob16, &h), static_cast<ULONG>(SAR_USER_NOT_LOGGED_IN));
  ULONG retries = 0;
  ASSERT_EQ(SKF_VerifyPIN(app, USER_TYPE, pin, &retries), kOk);

  Bytes plain96 = bytes(device_data("plain96.bin")), expected = bytes(device_data("sm4-ecb.nopad.bin"));
  for (auto [c, wrapped] : {std::make_pair(rsa, &rsa16), std::make_pair(sm2, &sm2Blob16)}) {
    HANDLE k = nullptr;
    ASSERT_EQ(import(c, SGD_SMS4_ECB, *wrapped, &k), kOk);
    EXPECT_EQ(run(k, true, param(0, nullptr), plain96), expected);  // the unwrapped key is kKey16
  }
  EXPECT_EQ(import(sm2, SGD_SMS4_CBC, sm2Blob24, &h), kOk);  // 24 bytes are kept as they are

  auto log = log_file();
  EXPECT_EQ(import(alone, SGD_SMS4_ECB, sm2Blob16, &h), static_cast<ULONG>(SAR_KEYNOTFOUNTERR));
  EXPECT_EQ(import(sm2, SGD_SM1_ECB, sm2Blob16, &h), static_cast<ULONG>(SAR_FAIL));
  std::string text = log.since();
  EXPECT_NE(text.find("Enc keypair not exist"), std::string::npos);
  EXPECT_NE(text.find("ulAlgId unsupported"), std::string::npos);

  // A CipherLen beyond what the structures carry, or beyond the data given, is refused unread.
  Bytes big(offsetof(ECCCIPHERBLOB, Cipher) + 166, 0);
  reinterpret_cast<ECCCIPHERBLOB*>(big.data())->CipherLen = 166;
  EXPECT_EQ(import(sm2, SGD_SMS4_ECB, big, &h), static_cast<ULONG>(SAR_INVALIDPARAMERR));
  Bytes cut(sm2Blob16.begin(), sm2Blob16.end() - 1);
  EXPECT_EQ(import(sm2, SGD_SMS4_ECB, cut, &h), static_cast<ULONG>(SAR_INVALIDPARAMERR));
  Bytes tampered = sm2Blob16;
  tampered.back() ^= 1;
  EXPECT_EQ(import(sm2, SGD_SMS4_ECB, tampered, &h), static_cast<ULONG>(SAR_FAIL));
}

}  // namespace
}  // namespace device
