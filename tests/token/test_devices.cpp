// Devices of the crypto library: names and enumeration, connection, state, information, label,
// the device lock and device authentication, through the exports.
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#ifndef _WIN32
#include <sys/stat.h>
#endif

#include "device_suite.h"
#include "vorel/vorel_crypto.h"

namespace device {
namespace {

using testsupport::count;

class Devices : public DeviceTest {};

// Lists stop short of the caller's buffer: present devices exactly, configured types with the
// final zero left out if need be.
TEST_F(Devices, EnumerationListsConfiguredTypesOrTheirTokensWithinTheBuffer) {
  configure(R"({"devices":[{"type":2},{"type":5}]})");
  make_token(5, "B");
  make_token(5, "A");
  make_token(2, "Z");
  make_token(4, "NOTCONFIGURED");
  EXPECT_EQ(enumerate(false), (std::vector<std::string>{"2#?", "5#?"}));
  EXPECT_EQ(enumerate(true), (std::vector<std::string>{"2#Z", "5#A", "5#B"}));
  // present: "2#Z\0" "5#A\0" "5#B\0" "\0" = 13 bytes; configured: "2#?\0" "5#?\0" "\0" = 9.
  const struct {
    BOOL present;
    ULONG room, rc, written;
  } cases[] = {
      {TRUE, 13, SAR_OK, 13}, {TRUE, 12, SAR_BUFFER_TOO_SMALL, 0}, {FALSE, 9, SAR_OK, 9},
      {FALSE, 8, SAR_OK, 8},  {FALSE, 7, SAR_BUFFER_TOO_SMALL, 0},
  };
  for (const auto& c : cases) {
    ULONG full = c.present ? 13 : 9, size = 0;
    ASSERT_EQ(SKF_EnumDev(c.present, nullptr, &size), kOk);
    EXPECT_EQ(size, full);
    char list[16];
    std::memset(list, '#', sizeof list);
    size = c.room;
    auto log = log_file();
    EXPECT_EQ(SKF_EnumDev(c.present, list, &size), c.rc) << c.present << "/" << c.room;
    EXPECT_EQ(size, c.rc == SAR_OK ? c.written : full) << "a length beyond what was written";
    EXPECT_EQ(list[c.written], '#') << "wrote past the caller's " << c.room << " bytes";
    if (c.rc != SAR_OK) {
      EXPECT_NE(log.since().find("SKF_EnumDev return: 0x0a000020"), std::string::npos);
    }
  }
  configure("{}");
  for (BOOL present : {TRUE, FALSE}) {
    ULONG size = 99;
    EXPECT_EQ(SKF_EnumDev(present, nullptr, &size), kOk);
    EXPECT_EQ(size, 0u);
  }
}

#ifndef _WIN32
TEST_F(Devices, ATokenFolderOthersMayReachIsWarnedOfOnce) {
  make_token(3, "A");
  ASSERT_EQ(chmod(tokenDir_.c_str(), 0777), 0);
  auto log = log_file();
  enumerate(true);
  enumerate(true);
  std::string text = log.since();
  EXPECT_EQ(count(text, "[WARN] [GetDeviceNameFromVorelCrypto]"), 1u) << text;
  EXPECT_NE(text.find(tokenDir_.substr(0, tokenDir_.size() - 1)), std::string::npos) << text;
}
#endif

// Name lists stop at the last whole name that fits their buffer, with a warning.
TEST_F(Devices, NameListsThatWouldOverflowStopAtTheLastWholeName) {
  auto serial = [](int i) {
    std::string s = "S" + std::to_string(100 + i);
    return s + std::string(31 - s.size(), 'x');  // the longest serial: names of 33 bytes
  };
  for (int i = 0; i < 31; ++i) make_token(3, serial(i));
  auto log = log_file();
  std::vector<std::string> names = enumerate(true);
  ASSERT_EQ(names.size(), 30u);  // 30 x 34 bytes + 1 fit in 1024, a 31st does not
  EXPECT_EQ(names.back(), "3#" + serial(29));
  EXPECT_EQ(
      count(log.since(), "[WARN] [GetDeviceNameFromVorelCrypto] name list of 1024 bytes is full: 3#" + serial(30)), 1u);

  std::string many = R"({"devices":[)";
  for (int i = 0; i < 400; ++i)
    many += (i ? "," : "") + std::string(R"({"type":)") + std::to_string(1000000000 + i) + "}";
  configure(many + "]}");
  ULONG size = 0;
  ASSERT_EQ(SKF_EnumDev(FALSE, nullptr, &size), kOk);
  EXPECT_EQ(size, 315u * 13 + 1);  // "1000000000#?\0" is 13 bytes; 4096 bytes hold 315 and the final zero
}

// Connecting finds the named or the first token and caches its information; a label set is
// cached on that handle only.
TEST_F(Devices, ConnectFindsTheNamedOrFirstTokenAndCachesItsInformationAndLabel) {
  make_token(3, "B22", "second");
  make_token(3, "A11", "first");
  DEVINFO info;
  ASSERT_EQ(SKF_GetDevInfo(connect("3#?"), &info), kOk);
  EXPECT_STREQ(info.SerialNumber, "A11");
  DEVHANDLE h = connect("3#B22");
  ASSERT_EQ(SKF_GetDevInfo(h, &info), kOk);
  EXPECT_STREQ(info.SerialNumber, "B22");
  EXPECT_STREQ(info.Label, "second");
  EXPECT_EQ(info.Version.major, 1);
  EXPECT_EQ(info.Version.minor, 0);
  EXPECT_STREQ(info.Manufacturer, "");
  // SMS4 always; AES-128, 3DES and DES both ways; no SM1 or SSF33 in software. DEVINFO is
  // packed: its fields are compared as copies, not bound to references at odd addresses.
  EXPECT_EQ(ULONG{info.AlgSymCap}, 0x403u | 0x4001 | 0x4002 | 0x2001 | 0x2002 | 0x8001 | 0x8002);
  EXPECT_EQ(ULONG{info.AlgAsymCap}, static_cast<ULONG>(SGD_RSA | SGD_SM2_1 | SGD_SM2_3));
  EXPECT_EQ(ULONG{info.AlgHashCap}, 7u);
  EXPECT_EQ(ULONG{info.DevAuthAlgId}, 0u);

  std::string label(32, 'L');
  EXPECT_EQ(SKF_SetLabel(h, &label[0]), static_cast<ULONG>(SAR_NAMELENERR));
  label.pop_back();
  ASSERT_EQ(SKF_SetLabel(h, &label[0]), kOk);
  ASSERT_EQ(SKF_GetDevInfo(h, &info), kOk);
  EXPECT_EQ(std::string(info.Label, label.size()), label);
  ASSERT_EQ(SKF_GetDevInfo(connect("3#B22"), &info), kOk);
  EXPECT_STREQ(info.Label, "second");
  // A shorter label leaves nothing of the longer one behind it.
  char shorter[] = "x";
  ASSERT_EQ(SKF_SetLabel(h, shorter), kOk);
  ASSERT_EQ(SKF_GetDevInfo(h, &info), kOk);
  EXPECT_EQ(std::string(info.Label, sizeof info.Label), std::string("x") + std::string(31, '\0'));
}

// A name connects only to a token that is there, and its state says so; a failed connection
// leaves the caller's handle as it was.
TEST_F(Devices, ConnectionAndStateOfEachKindOfName) {
  configure(R"({"devices":[{"type":3},{"type":6}]})");
  make_token(3, "A11");
  const struct {
    const char* name;
    ULONG rc;
    const char* logged;
    ULONG stateRc, state;
  } cases[] = {
      {"3#A11", SAR_OK, nullptr, SAR_OK, DEV_PRESENT_STATE},
      {"3#?", SAR_OK, nullptr, SAR_OK, DEV_PRESENT_STATE},
      {"6#?", SAR_DEVICE_REMOVED, "SKF_ConnectDev return: 0x0a000023", SAR_OK, DEV_ABSENT_STATE},
      {"3#B22", SAR_FAIL, "VorelPKICryptoFindDevice fail, error : -7", SAR_OK, DEV_ABSENT_STATE},
      {"4#?", SAR_DEVICE_REMOVED, nullptr, SAR_OK, DEV_ABSENT_STATE},
      {"0#A", SAR_INVALIDPARAMERR, "[ERROR] [is_valid_name] error type", SAR_INVALIDPARAMERR, DEV_UNKNOW_STATE},
      {"3-A", SAR_INVALIDPARAMERR, "device name format error", SAR_INVALIDPARAMERR, DEV_UNKNOW_STATE},
  };
  for (const auto& c : cases) {
    std::string name = c.name;
    DEVHANDLE h = reinterpret_cast<DEVHANDLE>(0x1);
    ULONG state = 77;
    auto log = log_file();
    EXPECT_EQ(SKF_ConnectDev(&name[0], &h), c.rc) << c.name;
    if (c.rc == SAR_OK) connected_.push_back(h);
    EXPECT_EQ(h != reinterpret_cast<DEVHANDLE>(0x1), c.rc == SAR_OK) << c.name;
    if (c.logged) {
      EXPECT_NE(log.since().find(c.logged), std::string::npos) << c.name;
    }
    EXPECT_EQ(SKF_GetDevState(&name[0], &state), c.stateRc) << c.name;
    EXPECT_EQ(state, c.state) << c.name;
  }
}

TEST_F(Devices, TheLockIsRecursiveForItsThreadAndExcludesOthers) {
  make_token(3, "A11");
  DEVHANDLE h = connect("3#A11");
  ASSERT_EQ(SKF_LockDev(h, 0), kOk);
  ASSERT_EQ(SKF_LockDev(h, 0), kOk);
  std::atomic<int> stage{0};
  std::thread other([&] {
    EXPECT_EQ(SKF_UnlockDev(h), static_cast<ULONG>(SAR_FAIL));  // not its lock
    stage = 1;
    EXPECT_EQ(SKF_LockDev(h, 0), kOk);
    stage = 2;
    EXPECT_EQ(SKF_UnlockDev(h), kOk);
  });
  while (stage < 1) std::this_thread::yield();
  ASSERT_EQ(SKF_UnlockDev(h), kOk);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(stage, 1);  // still held once
  ASSERT_EQ(SKF_UnlockDev(h), kOk);
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (stage < 2 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  EXPECT_EQ(stage, 2);
  other.join();
}

// SM4-ECB of one block under key, by the crypto library (checked against the SM4 vectors there).
std::vector<BYTE> sm4(const BYTE key[16], const BYTE block[16]) {
  VOREL_DEVICE* pseudo = nullptr;
  VorelPKICryptoGetPseudoDevice(&pseudo);
  VOREL_CIPHER* c = VorelPKICryptoNewCipher(pseudo, 1, VOREL_CIPHER_SM4_ECB, key, 16, nullptr);
  unsigned char* out = nullptr;
  std::size_t n = 0;
  EXPECT_EQ(VorelPKICryptoCipherUpdate(c, block, 16, &out, &n), VOREL_OK);
  std::vector<BYTE> result(out, out + n);
  VorelPKICryptoFreeMemory(out);
  VorelPKICryptoFreeCipher(c);
  VorelPKICryptoFreeDevice(pseudo);
  return result;
}

TEST_F(Devices, AConfiguredKeyAuthenticatesTheDeviceOverItsLastRandom) {
  const BYTE key[16] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10};
  configure(R"({"devices":[{"type":3,"devAuthKey":"0123456789ABCDEFFEDCBA9876543210"}]})");
  make_token(3, "A11");
  DEVHANDLE h = connect("3#A11");
  DEVINFO info;
  ASSERT_EQ(SKF_GetDevInfo(h, &info), kOk);
  EXPECT_EQ(ULONG{info.DevAuthAlgId}, static_cast<ULONG>(SGD_SMS4_ECB));

  struct Step {
    ULONG drawn;  // random bytes drawn first (0: none)
    bool right;   // answer with the right cryptogram
    ULONG rc;
    const char* logged;
  };
  const Step steps[] = {
      {16, true, SAR_OK, nullptr},
      {0, true, SAR_FAIL, "no random bytes were drawn"},  // the last challenge was used
      {8, true, SAR_OK, nullptr},                         // 8 bytes, zero-padded to a block
      {32, true, SAR_OK, nullptr},                        // the first 16 of them
      {16, false, SAR_FAIL, "is not the encrypted random"},
      {0, true, SAR_FAIL, "no random bytes were drawn"},  // a wrong answer uses it up too
  };
  BYTE block[16] = {};
  for (const Step& s : steps) {
    if (s.drawn) {
      BYTE random[32] = {};
      ASSERT_EQ(SKF_GenRandom(h, random, s.drawn), kOk);
      std::memset(block, 0, sizeof block);
      std::memcpy(block, random, s.drawn < 16 ? s.drawn : 16);
    }
    std::vector<BYTE> answer = sm4(key, block);
    if (!s.right) answer[5] ^= 1;
    auto log = log_file();
    EXPECT_EQ(SKF_DevAuth(h, answer.data(), 16), s.rc) << s.drawn;
    if (s.logged) {
      EXPECT_NE(log.since().find(s.logged), std::string::npos) << s.logged;
    }
  }
  // Keyless types keep the standard answer (test_asymmetric: not emulated); no answer is no answer.
  EXPECT_EQ(SKF_ChangeDevAuthKey(h, block, 16), static_cast<ULONG>(SAR_NOT_EMULATED));
  EXPECT_EQ(SKF_DevAuth(h, nullptr, 16), static_cast<ULONG>(SAR_INVALIDPARAMERR));
}

}  // namespace
}  // namespace device
