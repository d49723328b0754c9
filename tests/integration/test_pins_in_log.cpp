// What the log never holds at any level: the PINs of every export that takes one, on both routes.
#include <cctype>
#include <cstdlib>
#include <functional>

#include "device_suite.h"
#include "vorel/vorel_crypto.h"

namespace device {
namespace {

class PinsInLog : public DeviceTest {};

TEST_F(PinsInLog, NoExportWritesAPinEvenAtDebug) {
  ASSERT_EQ(std::string(std::getenv("VOREL_SKF_LOG_LEVEL")), "4");
  configure(R"({"devices":[{"name":"EMULATED","type":3},)" + vendor_entry(7) + "]}");
  testsupport::Recorder vendor(testsupport::module_path(VENDOR_FIXTURE));
  // PINs no other line of the log can hold by chance.
  const char* so = "So-3810-admin";
  const char* user = "Us-6127-user";
  VOREL_DEVICE* token = nullptr;
  ASSERT_EQ(VorelPKICryptoCreateToken(3, "P1", "pins", so, user, 1000, &token), VOREL_OK);
  VorelPKICryptoFreeDevice(token);
  char appName[] = "VOREL";
  HAPPLICATION app = nullptr, vapp = nullptr;
  ASSERT_EQ(SKF_OpenApplication(connect("3#P1"), appName, &app), kOk);
  DEVHANDLE vdev = connect("7#FIXTURE0");

  struct Case {
    const char* what;
    std::vector<std::string> pins;
    std::function<ULONG(char*, char*)> call;
    ULONG expected;
  };
  ULONG retries = 0;
  const Case cases[] = {
      {"verify user", {user, ""}, [&](char* p, char*) { return SKF_VerifyPIN(app, USER_TYPE, p, &retries); }, kOk},
      {"verify wrong", {"Wr-5521-guess", ""},
       [&](char* p, char*) { return SKF_VerifyPIN(app, USER_TYPE, p, &retries); }, SAR_PIN_INCORRECT},
      {"change user", {user, "Nu-4417-user"},
       [&](char* o, char* n) { return SKF_ChangePIN(app, USER_TYPE, o, n, &retries); }, kOk},
      {"change admin", {so, "Ns-9052-admin"},
       [&](char* o, char* n) { return SKF_ChangePIN(app, ADMIN_TYPE, o, n, &retries); }, kOk},
      {"unblock", {"Ns-9052-admin", "Nb-2290-user"},
       [&](char* a, char* n) { return SKF_UnblockPIN(app, a, n, &retries); }, kOk},
      {"unblock wrong", {"Wa-7713-admin", "Nc-1148-user"},
       [&](char* a, char* n) { return SKF_UnblockPIN(app, a, n, &retries); }, SAR_PIN_INCORRECT},
      {"vendor create application", {"Va-3318-admin", "Vu-7260-user"},
       [&](char* a, char* u) { return SKF_CreateApplication(vdev, appName, a, 6, u, 6, SECURE_ANYONE_ACCOUNT, &vapp); },
       kOk},
      {"vendor verify", {"Vv-1185-user", ""},
       [&](char* p, char*) { return SKF_VerifyPIN(vapp, USER_TYPE, p, &retries); }, kOk},
      {"vendor change", {"Vo-6604-old", "Vn-8841-new"},
       [&](char* o, char* n) { return SKF_ChangePIN(vapp, ADMIN_TYPE, o, n, &retries); }, kOk},
      {"vendor unblock", {"Vx-5570-admin", "Vy-3392-user"},
       [&](char* a, char* n) { return SKF_UnblockPIN(vapp, a, n, &retries); }, kOk},
  };
  for (const Case& c : cases) {
    std::string first = c.pins[0], second = c.pins[1];
    auto log = log_file();
    ASSERT_EQ(c.call(&first[0], &second[0]), c.expected) << c.what;
    std::string text = log.since();
    // The export was traced at DEBUG, its PIN arguments named...
    EXPECT_NE(text.find(": (not logged)"), std::string::npos) << c.what << "\n" << text;
    // ...but no PIN, as text or as hexadecimal, in either case.
    for (const std::string& pin : c.pins) {
      if (pin.empty()) continue;
      std::string lower = hex(pin), upper = lower;
      for (char& ch : upper) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
      for (const std::string& form : {pin, lower, upper})
        EXPECT_EQ(text.find(form), std::string::npos) << c.what << ": " << form << " in\n" << text;
    }
  }
}

}  // namespace
}  // namespace device
