// Device names and USB presence.
#include <gtest/gtest.h>

#include <cstdlib>

#include "skf/names.h"
#include "unit.h"
#include "vendor/usb.h"

using namespace vorel;

namespace {

TEST(DeviceNames, Parsing) {
  const struct {
    const char* name;
    bool valid;
    int32_t type;
    const char* own;
    const char* logged;
  } cases[] = {
      {"3#ABC", true, 3, "ABC", nullptr},
      {"03#ABC", true, 3, "ABC", nullptr},
      {"3#", true, 3, "", nullptr},
      {"12#A#B", true, 12, "A#B", nullptr},
      {"0#ABC", false, 0, nullptr, "[ERROR] [is_valid_name] error type"},
      {"-1#ABC", false, -1, nullptr, "error type"},
      {"ABC", false, 0, nullptr, "error type"},
      {"99999999999#A", false, 0, nullptr, "error type"},
      {"3ABC", false, 3, nullptr, "[ERROR] [is_valid_name] device name format error"},
      {"3-ABC", false, 3, nullptr, "device name format error"},
      {" 3#ABC", false, 3, nullptr, "device name format error"},
      {"+3#ABC", false, 3, nullptr, "device name format error"},
  };
  for (const auto& c : cases) {
    int32_t type = 77;
    std::string own = "unchanged";
    auto log = unit::log_file();
    EXPECT_EQ(is_valid_name(c.name, &type, &own), c.valid) << c.name;
    EXPECT_EQ(type, c.type) << c.name;
    if (c.valid) {
      EXPECT_EQ(own, c.own) << c.name;
    }
    if (c.logged) {
      EXPECT_NE(log.since().find(c.logged), std::string::npos) << c.name;
    }
  }
}

#ifndef _WIN32
TEST(UsbPresence, IdentifierSegmentsOfAnotherSysfsTree) {
  std::string root = testsupport::make_temp_dir("sysfs");
  std::string devices = root + "bus/usb/devices/";
  auto device = [&](const std::string& entry, const char* vid, const char* pid) {
    ASSERT_EQ(std::system(("mkdir -p '" + devices + entry + "'").c_str()), 0);
    if (vid) testsupport::write_file(devices + entry + "/idVendor", vid);
    if (pid) testsupport::write_file(devices + entry + "/idProduct", pid);
  };
  device("usb1", "1d6b\n", "0002\n");
  device("1-1", "096e\n", "0702\n");
  device("1-1:1.0", nullptr, nullptr);  // an interface: no identifiers
  device("2-1", "12345\n", "0001\n");   // not four digits
  device("2-2", "abcd", nullptr);       // half a device
  testsupport::ScopedEnv sysfs("VOREL_SKF_SYSFS", root.c_str());
  using List = std::vector<std::string>;
  const struct {
    List pidvids;
    bool found;
  } cases[] = {
      {{"VID_096E&PID_0702"}, true},
      {{"vid_096e&pid_0702"}, true},
      {{"VID_096E"}, true},
      {{"VID_0000", "VID_1D6B&PID_0002"}, true},
      {{""}, true},
      {{}, false},
      {{"VID_096E&PID_0703"}, false},
      {{"VID_096E&PID_0702#SERIAL"}, false},  // longer than the segment
      {{"VID_1234"}, false},
      {{"VID_ABCD"}, false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(FindUsbByPidvids(c.pidvids), c.found) << (c.pidvids.empty() ? "" : c.pidvids[0]);
  auto log = unit::log_file();
  EXPECT_TRUE(FindUsbByPidvids({"VID_096E"}));
  EXPECT_NE(log.since().find("[DEBUG] [FindUsbByPidvids] find usb key, pidvid : VID_096E"), std::string::npos);

  testsupport::ScopedEnv missing("VOREL_SKF_SYSFS", (root + "absent").c_str());
  EXPECT_FALSE(FindUsbByPidvids({""}));
}
#else
TEST(UsbPresence, AnswersWithoutCrashing) { EXPECT_FALSE(FindUsbByPidvids({"VID_FFFF&PID_FFFE"})); }
#endif

}  // namespace
