// The emulated application: containers formed from a token's key pairs and their order, PINs
// and the secure state, container handles, certificates, and what closing a parent does.
#include <cstring>
#include <functional>

#include "device_suite.h"
#include "vorel/vorel_crypto.h"

namespace device {
namespace {

constexpr int S = VOREL_KEYPAIR_SIGN;
constexpr int E = VOREL_KEYPAIR_ENCRYPT;

class Applications : public DeviceTest {
 protected:
  // A token of type 3 holding keys, opened: its device and application handles.
  HAPPLICATION open(const std::vector<KeySpec>& keys, const std::string& serial = "T1") {
    make_token(3, serial, "token", keys);
    dev_ = connect("3#" + serial);
    return open_app(dev_);
  }
  HAPPLICATION open_app(DEVHANDLE dev) {
    char name[] = "VOREL";
    HAPPLICATION app = nullptr;
    EXPECT_EQ(SKF_OpenApplication(dev, name, &app), kOk);
    return app;
  }
  std::vector<std::string> containers(HAPPLICATION app) {
    char list[4096];
    ULONG size = sizeof list;
    EXPECT_EQ(SKF_EnumContainer(app, list, &size), kOk);
    return split_names(list, size);
  }
  HCONTAINER open_container(HAPPLICATION app, const char* name) {
    std::string copy = name;
    HCONTAINER c = nullptr;
    EXPECT_EQ(SKF_OpenContainer(app, &copy[0], &c), kOk) << name;
    return c;
  }
  // The certificate the container's key pair holds, or the SKF code that refused it.
  std::string exported(HCONTAINER c, BOOL sign, ULONG* rc = nullptr) {
    ULONG len = 0;
    ULONG r = SKF_ExportCertificate(c, sign, nullptr, &len);
    std::string der(len, '\0');
    if (r == SAR_OK) r = SKF_ExportCertificate(c, sign, reinterpret_cast<BYTE*>(&der[0]), &len);
    if (rc) *rc = r;
    return r == SAR_OK ? der : std::string();
  }
  DEVHANDLE dev_ = nullptr;
};

TEST_F(Applications, KeyPairsBecomeContainersInTheirOrder) {
  using Names = std::vector<std::string>;
  std::vector<KeySpec> nine;
  for (const char* key : {"s1", "s2", "s3", "s4", "s5", "s6", "s7", "s8", "s9"}) nine.push_back({key, S, key, nullptr});
  const struct {
    const char* what;
    std::vector<KeySpec> keys;
    Names names;
  } cases[] = {
      {"two signing pairs", {{"s1", S, "A", nullptr}, {"s6", S, "B", nullptr}}, {"A", "B"}},
      {"an encryption pair of the same label joins", {{"s1", S, "S", "s1"}, {"s2", E, "S", "s2"}}, {"S"}},
      {"agreeing certificates join under both labels", {{"s1", S, "S", "s1"}, {"s2", E, "E", "s2"}}, {"S#E"}},
      {"without certificates pairs of one algorithm join", {{"s1", S, "S", nullptr}, {"s2", E, "E", nullptr}}, {"S#E"}},
      {"another end of validity keeps them apart", {{"s1", S, "S", "s1"}, {"s3", E, "E", "s3"}}, {"S"}},
      {"another subject keeps them apart", {{"s1", S, "S", "s1"}, {"s5", E, "E", "s5"}}, {"S"}},
      {"another algorithm keeps them apart", {{"s1", S, "S", nullptr}, {"r1", E, "E", nullptr}}, {"S"}},
      {"an encryption pair before any signing pair is left out",
       {{"s2", E, "S", nullptr}, {"s1", S, "S", nullptr}},
       {"S"}},
      {"only the last container is joined",
       {{"s1", S, "A", nullptr}, {"s6", S, "B", nullptr}, {"s7", E, "A", nullptr}},
       {"B#A", "A"}},
      {"a ninth signing pair is left out", nine, {"s1", "s2", "s3", "s4", "s5", "s6", "s7", "s8"}},
      {"SM2 before RSA of as many parts", {{"r1", S, "R", nullptr}, {"s1", S, "M", nullptr}}, {"M", "R"}},
      {"an RSA container with more parts overtakes an SM2 one with fewer",
       {{"s1", S, "M", nullptr}, {"r1", S, "R", "r1"}, {"r2", E, "R", "r2"}},
       {"R", "M"}},
      {"equal scores: the certificate that ends later first", {{"s1", S, "A", "s1"}, {"s4", S, "B", "s4"}}, {"B", "A"}},
      {"equal scores: encryption certificates when neither has a signing one",
       {{"s1", S, "X", nullptr}, {"s2", E, "X", "s2"}, {"s6", S, "Y", nullptr}, {"s3", E, "Y", "s3"}},
       {"Y", "X"}},
      {"equal scores: the right one's encryption certificate counts only if the left one has one",
       {{"s1", S, "X", "s1"}, {"s2", E, "X", nullptr}, {"s6", S, "Y", nullptr}, {"s3", E, "Y", "s3"}},
       {"X", "Y"}},
      {"no key pairs", {}, {}},
  };
  int serial = 0;
  for (const auto& c : cases) {
    HAPPLICATION app = open(c.keys, "C" + std::to_string(++serial));
    EXPECT_EQ(containers(app), c.names) << c.what;
  }
}

// The one application, its containers, and certificates that land only on their own key pair,
// whichever handle of the container brought them.
TEST_F(Applications, TheOneApplicationItsContainersAndTheirCertificates) {
  HAPPLICATION app = open({{"s1", S, "S", nullptr}, {"s2", E, "E", nullptr}, {"s6", S, "ONLY", nullptr}});
  char list[16];
  ULONG size = 5;
  EXPECT_EQ(SKF_EnumApplication(dev_, list, &size), static_cast<ULONG>(SAR_BUFFER_TOO_SMALL));
  std::memset(list, '#', sizeof list);
  size = 6;
  ASSERT_EQ(SKF_EnumApplication(dev_, list, &size), kOk);
  EXPECT_EQ(size, 6u);
  EXPECT_EQ(std::string(list, 7), std::string("VOREL\0#", 7));  // one zero byte, no list terminator
  HAPPLICATION other = nullptr;
  for (const char* wrong : {"vorel", "VOREL ", "VORE", ""}) {
    std::string name = wrong;
    EXPECT_EQ(SKF_OpenApplication(dev_, &name[0], &other), static_cast<ULONG>(SAR_APPLICATION_NAME_INVALID)) << wrong;
  }

  ASSERT_EQ(SKF_EnumContainer(app, nullptr, &size), kOk);
  EXPECT_EQ(size, 10u);  // "S#E\0ONLY\0\0"
  size = 9;
  EXPECT_EQ(SKF_EnumContainer(app, list, &size), static_cast<ULONG>(SAR_BUFFER_TOO_SMALL));
  char partial[] = "S";
  HCONTAINER none = nullptr;
  auto log = log_file();
  EXPECT_EQ(SKF_OpenContainer(app, partial, &none), static_cast<ULONG>(SAR_INVALIDPARAMERR));
  EXPECT_NE(log.since().find("[ERROR] [SKF_OpenContainer] not find container"), std::string::npos);

  std::string s1 = device_data("s1.crt"), s2 = device_data("s2.crt");
  HCONTAINER one = open_container(app, "S#E"), two = open_container(app, "S#E");
  EXPECT_NE(one, two);
  HCONTAINER only = open_container(app, "ONLY");
  char pin[] = "12345678";
  ULONG retries = 0, rc = 0;
  ASSERT_EQ(SKF_VerifyPIN(app, USER_TYPE, pin, &retries), kOk);  // the token keeps certificates after login

  auto import = [](HCONTAINER c, BOOL sign, std::string& der) {
    return SKF_ImportCertificate(c, sign, reinterpret_cast<BYTE*>(&der[0]), static_cast<ULONG>(der.size()));
  };
  EXPECT_EQ(import(one, TRUE, s2), static_cast<ULONG>(SAR_FAIL));  // the encryption pair's certificate
  exported(two, TRUE, &rc);
  EXPECT_EQ(rc, static_cast<ULONG>(SAR_CERTNOTFOUNTERR));
  EXPECT_EQ(import(only, FALSE, s1), static_cast<ULONG>(SAR_KEYNOTFOUNTERR));

  ASSERT_EQ(import(one, TRUE, s1), kOk);
  ASSERT_EQ(import(one, FALSE, s2), kOk);
  EXPECT_EQ(exported(two, TRUE), s1);  // read from the key pair, whichever handle imported it
  EXPECT_EQ(exported(two, FALSE), s2);

  ULONG len = static_cast<ULONG>(s1.size()) - 1;
  std::string out(s1.size(), '\0');
  EXPECT_EQ(SKF_ExportCertificate(one, TRUE, reinterpret_cast<BYTE*>(&out[0]), &len),
            static_cast<ULONG>(SAR_BUFFER_TOO_SMALL));
  std::string garbage = "not a certificate";
  EXPECT_EQ(import(one, TRUE, garbage), static_cast<ULONG>(SAR_FAIL));
  EXPECT_EQ(exported(one, TRUE), s1);
  ASSERT_EQ(SKF_CloseContainer(one), kOk);
  EXPECT_EQ(exported(two, TRUE), s1);  // the other handle lives on
}

TEST_F(Applications, PinsAndTheSecureState) {
  HAPPLICATION app = open({});
  HAPPLICATION second = open_app(dev_);
  auto verify = [&](ULONG type, std::string pin, ULONG* retries) { return SKF_VerifyPIN(app, type, &pin[0], retries); };
  auto change = [&](std::string pin, std::string to, ULONG* retries) {
    return SKF_ChangePIN(app, USER_TYPE, &pin[0], &to[0], retries);
  };
  auto unblock = [&](std::string so, std::string to, ULONG* retries) {
    return SKF_UnblockPIN(app, &so[0], &to[0], retries);
  };
  const struct {
    std::function<ULONG(ULONG*)> call;
    ULONG rc;
    ULONG retries;  // checked when the answer is SAR_PIN_INCORRECT
    ULONG state;    // SKF_GetSecureState afterwards
  } steps[] = {
      {[&](ULONG* r) { return verify(USER_TYPE, kUserPin, r); }, SAR_OK, 0, 1},
      {[&](ULONG* r) { return verify(USER_TYPE, "00000000", r); }, SAR_PIN_INCORRECT, 5, 2},  // a failure logs out
      {[&](ULONG* r) { return verify(ADMIN_TYPE, kSoPin, r); }, SAR_OK, 0, 0},
      {[&](ULONG* r) { return verify(USER_TYPE, kUserPin, r); }, SAR_OK, 0, 1},  // the user flag alone now
      {[&](ULONG* r) { return verify(2, kUserPin, r); }, SAR_USER_TYPE_INVALID, 0, 2},
      {[&](ULONG* r) { return verify(USER_TYPE, kUserPin, r); }, SAR_OK, 0, 1},
      {[&](ULONG* r) { return unblock("00000000", "11112222", r); }, SAR_PIN_INCORRECT, 5, 1},  // the SO PIN's tries
      {[&](ULONG* r) { return unblock(kSoPin, "11112222", r); }, SAR_OK, 0, 0},
      {[&](ULONG* r) { return verify(USER_TYPE, kUserPin, r); }, SAR_PIN_INCORRECT, 5, 2},  // replaced
      {[&](ULONG* r) { return change("11112222", kUserPin, r); }, SAR_OK, 0, 2},
      {[&](ULONG* r) { return change("11112222", kUserPin, r); }, SAR_PIN_INCORRECT, 5, 2},
      {[&](ULONG* r) { return verify(USER_TYPE, "123", r); }, SAR_PIN_LEN_RANGE, 0, 2},
      {[&](ULONG* r) { return verify(ADMIN_TYPE, kSoPin, r); }, SAR_OK, 0, 0},
      {[&](ULONG*) { return SKF_ClearSecureState(app); }, SAR_OK, 0, 2},
  };
  int i = 0;
  for (const auto& s : steps) {
    ++i;
    ULONG retries = 99, state = 99;
    ULONG rc = s.call(&retries);
    EXPECT_EQ(rc, s.rc) << "step " << i;
    if (rc == SAR_PIN_INCORRECT) {
      EXPECT_EQ(retries, s.retries) << "step " << i;
    }
    ASSERT_EQ(SKF_GetSecureState(app, &state), kOk);
    EXPECT_EQ(state, s.state) << "step " << i;
    ASSERT_EQ(SKF_GetSecureState(second, &state), kOk);
    EXPECT_EQ(state, 2u) << "another application's flags, step " << i;
  }

  // The tries left after the one wrong change, out of a fixed six.
  ULONG max = 0, left = 0;
  BOOL isDefault = TRUE;
  ASSERT_EQ(SKF_GetPINInfo(app, USER_TYPE, &max, &left, &isDefault), kOk);
  EXPECT_EQ(max, 6u);
  EXPECT_EQ(left, 5u);
  EXPECT_EQ(isDefault, FALSE);
  EXPECT_EQ(SKF_GetPINInfo(app, 7, &max, &left, &isDefault), static_cast<ULONG>(SAR_USER_TYPE_INVALID));
}

// Every handle lives until it is closed itself: an application keeps its PIN state, and keys
// and hashes work, after their device was disconnected; a container outlives its application.
// Clients close the application before its containers.
TEST_F(Applications, HandlesOutliveTheirParents) {
  HAPPLICATION app = open({{"s1", S, "S", nullptr}, {"s2", E, "S", nullptr}});
  char pin[] = "12345678";
  ULONG retries = 0, state = 0;
  ASSERT_EQ(SKF_VerifyPIN(app, USER_TYPE, pin, &retries), kOk);
  HCONTAINER c = open_container(app, "S");
  BYTE key[16] = {1, 2, 3}, block[16] = {}, out[64];
  HANDLE k = nullptr, hash = nullptr, mac = nullptr;
  ASSERT_EQ(SKF_SetSymmKey(dev_, key, SGD_SMS4_CBC, &k), kOk);
  ASSERT_EQ(SKF_DigestInit(dev_, SGD_SM3, nullptr, nullptr, 0, &hash), kOk);
  BLOCKCIPHERPARAM iv{};
  iv.IVLen = 16;
  ASSERT_EQ(SKF_MacInit(k, &iv, &mac), kOk);

  ASSERT_EQ(SKF_DisConnectDev(dev_), kOk);
  connected_.clear();
  EXPECT_EQ(SKF_GetSecureState(app, &state), kOk);
  EXPECT_EQ(state, 1u);  // the user PIN verified
  ASSERT_EQ(SKF_CloseApplication(app), kOk);
  ECCSIGNATUREBLOB sig;
  ULONG len = sizeof out;
  EXPECT_EQ(SKF_ECCSignData(c, out, 32, &sig), kOk);
  EXPECT_EQ(SKF_Digest(hash, block, 16, out, &len), kOk);
  ASSERT_EQ(SKF_EncryptInit(k, iv), kOk);
  len = sizeof out;
  EXPECT_EQ(SKF_Encrypt(k, block, 16, out, &len), kOk);
  ASSERT_EQ(SKF_CloseHandle(k), kOk);
  len = sizeof out;
  EXPECT_EQ(SKF_Mac(mac, block, 16, out, &len), kOk);
  for (HANDLE h : {hash, mac}) EXPECT_EQ(SKF_CloseHandle(h), kOk);
  EXPECT_EQ(SKF_CloseContainer(c), kOk);
}

}  // namespace
}  // namespace device
