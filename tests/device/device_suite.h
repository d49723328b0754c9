// The device suites drive the built library through its exports, as applications do, over
// software tokens made with the crypto library's own API in a fresh token folder per test.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "recorder.h"
#include "skf.h"
#include "support.h"

namespace device {

// The log file the library writes (VOREL_SKF_LOG_PATH, set before the library loaded).
extern std::string g_log_path;
inline testsupport::LogFile log_file() { return testsupport::LogFile(g_log_path); }

constexpr ULONG kOk = SAR_OK;

class DeviceTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Replaces the library's configuration; fails the test when it does not load.
  void configure(const std::string& json);
  // A token of the type with that serial number and label (PINs "12345678").
  void make_token(int type, const std::string& serial, const std::string& label = "token");
  // Connects, failing the test on any other answer.
  DEVHANDLE connect(const std::string& name);
  // The SKF_EnumDev list as names.
  std::vector<std::string> enumerate(bool present);

  std::string tokenDir_;
  std::unique_ptr<testsupport::ScopedEnv> tokenEnv_;
  std::vector<DEVHANDLE> connected_;
};

// A configuration entry routing a type to the recording vendor module.
std::string vendor_entry(int type, const std::string& pidvids = R"(["VID_1234"])");
std::string empty_vendor_entry(int type);

std::vector<std::string> split_names(const char* list, ULONG size);

}  // namespace device
