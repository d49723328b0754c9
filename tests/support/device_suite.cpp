#include "device_suite.h"

#include <cstring>

#include "crypto/der.h"
#include "vorel/vorel_crypto.h"

namespace device {

void DeviceTest::SetUp() {
  tokens_ = std::make_unique<testsupport::TokenFolder>("tokens");
  tokenDir_ = tokens_->dir;
  configure(R"({"devices":[{"name":"EMULATED","type":3}]})");
}

void DeviceTest::TearDown() {
  for (DEVHANDLE h : connected_) SKF_DisConnectDev(h);
  configure("{}");
  tokens_.reset();
}

void DeviceTest::configure(const std::string& json) {
  std::string copy = json;
  ASSERT_EQ(SKF_LoadConfigurationWithContent(&copy[0]), kOk) << json;
}

void DeviceTest::make_token(int type, const std::string& serial, const std::string& label,
                            const std::vector<KeySpec>& keys) {
  VOREL_DEVICE* d = nullptr;
  ASSERT_EQ(VorelPKICryptoCreateToken(type, serial.c_str(), label.c_str(), kSoPin, kUserPin, 1000, &d), VOREL_OK)
      << type << "-" << serial;
  unsigned retries = 0;
  if (!keys.empty()) {
    EXPECT_EQ(VorelPKICryptoVerifyPwd(d, VOREL_PWD_USER, kUserPin, &retries), VOREL_OK);
  }
  for (const KeySpec& k : keys) {
    std::string der = device_data(std::string(k.key) + ".der");
    VOREL_KEYPAIR* kp = nullptr;
    EXPECT_EQ(
        VorelPKICryptoImportKeypair(d, reinterpret_cast<const unsigned char*>(der.data()), der.size(), k.type, &kp),
        VOREL_OK)
        << k.key;
    EXPECT_EQ(VorelPKICryptoSetKeypairLabel(kp, k.label), VOREL_OK);
    if (k.cert) {
      std::string crt = device_data(std::string(k.cert) + ".crt");
      VOREL_CERT* cert = VorelPKICertNewCert(reinterpret_cast<const unsigned char*>(crt.data()), crt.size());
      EXPECT_EQ(VorelPKICryptoUpdateCertificate(kp, cert), VOREL_OK) << k.cert;
      VorelPKICertFreeCert(cert);
    }
    VorelPKICryptoFreeKeypair(kp);
  }
  VorelPKICryptoClearPwdCache(d);
  VorelPKICryptoFreeDevice(d);
}

std::string device_data(const std::string& name) {
  std::string data = testsupport::read_file("testdata/device/" + name);
  EXPECT_FALSE(data.empty()) << "testdata/device/" << name << " (run from the binaries' folder)";
  return data;
}

DEVHANDLE DeviceTest::connect(const std::string& name) {
  std::string copy = name;
  DEVHANDLE h = nullptr;
  EXPECT_EQ(SKF_ConnectDev(&copy[0], &h), kOk) << name;
  if (h) connected_.push_back(h);
  return h;
}

std::vector<std::string> DeviceTest::enumerate(bool present) {
  char list[8192];
  ULONG size = sizeof list;
  EXPECT_EQ(SKF_EnumDev(present, list, &size), kOk);
  return split_names(list, size);
}

std::vector<std::string> split_names(const char* list, ULONG size) {
  std::vector<std::string> names;
  for (ULONG at = 0; at < size && list[at]; at += static_cast<ULONG>(names.back().size()) + 1)
    names.emplace_back(list + at);
  return names;
}

std::string vendor_entry(int type, const std::string& pidvids) {
  return R"({"name":"FIXTURE","type":)" + std::to_string(type) + R"(,"isskf":true,"pidvids":)" + pidvids +
         R"(,"dllpath":")" + testsupport::json_escape(testsupport::module_path(VENDOR_FIXTURE)) + R"("})";
}

std::string empty_vendor_entry(int type) {
  return R"({"name":"EMPTY","type":)" + std::to_string(type) + R"(,"isskf":true,"dllpath":")" +
         testsupport::json_escape(testsupport::module_path(VENDOR_EMPTY)) + R"("})";
}

Bytes unhex(const std::string& hex) {
  Bytes out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    out.push_back(static_cast<BYTE>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  return out;
}

std::string hex(const void* data, std::size_t len) {
  static const char digits[] = "0123456789abcdef";
  const auto* p = static_cast<const unsigned char*>(data);
  std::string out;
  for (std::size_t i = 0; i < len; ++i) {
    out += digits[p[i] >> 4];
    out += digits[p[i] & 15];
  }
  return out;
}

Bytes ecc_cipher_blob(const std::string& der) {
  using namespace vorel::crypto::der;
  Reader top(reinterpret_cast<const unsigned char*>(der.data()), der.size()), seq;
  const unsigned char *x, *y, *hash, *c2;
  std::size_t xn, yn, hn, c2n;
  EXPECT_TRUE(top.next(kSequence, seq) && seq.integer(&x, &xn) && seq.integer(&y, &yn) &&
              seq.next(kOctetString, &hash, &hn) && seq.next(kOctetString, &c2, &c2n) && hn == 32 && xn <= 32 &&
              yn <= 32);
  Bytes blob(sizeof(ECCCIPHERBLOB) + c2n, 0);
  std::memcpy(blob.data() + offsetof(ECCCIPHERBLOB, XCoordinate) + 64 - xn, x, xn);
  std::memcpy(blob.data() + offsetof(ECCCIPHERBLOB, YCoordinate) + 64 - yn, y, yn);
  std::memcpy(blob.data() + offsetof(ECCCIPHERBLOB, HASH), hash, 32);
  ULONG cipherLen = static_cast<ULONG>(c2n);
  std::memcpy(blob.data() + offsetof(ECCCIPHERBLOB, CipherLen), &cipherLen, sizeof cipherLen);
  std::memcpy(blob.data() + offsetof(ECCCIPHERBLOB, Cipher), c2, c2n);
  blob.resize(offsetof(ECCCIPHERBLOB, Cipher) + c2n);
  return blob;
}

ECCPUBLICKEYBLOB ecc_public_blob(const std::string& spki) {
  unsigned char *x = nullptr, *y = nullptr;
  std::size_t xn = 0, yn = 0;
  int curve = 0;
  ECCPUBLICKEYBLOB blob{};
  EXPECT_EQ(VorelPKICryptoDecodeECCPubKey(reinterpret_cast<const unsigned char*>(spki.data()), spki.size(), &curve, &x,
                                          &xn, &y, &yn),
            VOREL_OK);
  blob.BitLen = 256;
  if (x && y && xn == 32 && yn == 32) {
    std::memcpy(blob.XCoordinate + 32, x, 32);
    std::memcpy(blob.YCoordinate + 32, y, 32);
  }
  VorelPKICryptoFreeMemory(x);
  VorelPKICryptoFreeMemory(y);
  return blob;
}

bool openssl(const std::vector<std::string>& args, const std::string& input, std::string* output) {
#ifdef _WIN32
  (void)args;
  (void)input;
  (void)output;
  return false;
#else
  std::string dir = testsupport::make_temp_dir("openssl");
  std::vector<std::string> all;
  for (const std::string& a : args) {
    if (a == "IN") {
      testsupport::write_file(dir + "in.bin", input);
      all.push_back(dir + "in.bin");
    } else if (a == "OUT") {
      all.push_back(dir + "out.bin");
    } else {
      all.push_back(a);
    }
  }
  int rc = testsupport::run_process("/usr/bin/openssl", all);
  EXPECT_EQ(rc, 0) << "openssl " << args[0];
  if (output) *output = testsupport::read_file(dir + "out.bin");
  return true;
#endif
}

}  // namespace device
