// Session keys, block ciphers, digests and MACs through the exports: each algorithm id reaching its
// algorithm (checked against what openssl made at build time), the IV and padding rules, parts
// and final blocks, size queries and the answers. Keys wrapped for a container: test_asymmetric.
#include <cstring>
#include <functional>

#include "device_suite.h"

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
    EXPECT_EQ((encrypt ? SKF_EncryptInit : SKF_DecryptInit)(k, p), kOk);
    auto once = encrypt ? SKF_Encrypt : SKF_Decrypt;
    EXPECT_EQ(once(k, in.data(), static_cast<ULONG>(in.size()), out.data(), &len), kOk);
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

  len = sizeof out;
  // Null outputs are refused as handles are, not taken for size queries.
  EXPECT_EQ(SKF_Decrypt(ecb, plain.data(), 16, nullptr, &len), static_cast<ULONG>(SAR_INVALIDHANDLEERR));
  EXPECT_EQ(SKF_EncryptFinal(ecb, out, nullptr), static_cast<ULONG>(SAR_INVALIDHANDLEERR));
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

TEST_F(Symmetric, MacIsTheLastBlockOfCbcAndRefusalsAreLogged) {
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
      {[&] { return SKF_Mac(fresh, data.data(), 20, out, &len); }, "ulDataLen % 16 != 0"},
      // A live handle of another kind: the line of the helper that refuses it.
      {[&] { return SKF_MacInit(hash, &p, &none); }, "key_handle->m_flag != 1"},
      {[&] { return SKF_EncryptInit(hash, p); }, "[CipherInit] CipherInit return: 0x0a000001"},
      {[&] { return SKF_Encrypt(hash, data.data(), 16, out, &len); }, "[Cipher] Cipher return: 0x0a000001"},
      {[&] { return SKF_DecryptFinal(hash, out, &len); }, "[CipherFinal] CipherFinal return: 0x0a000001"},
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

}  // namespace
}  // namespace device
