#include "device_suite.h"

#include "vorel/vorel_crypto.h"

namespace device {

void DeviceTest::SetUp() {
  tokenDir_ = testsupport::make_temp_dir("tokens");
  tokenEnv_ = std::make_unique<testsupport::ScopedEnv>("VOREL_TOKEN_DIR", tokenDir_.c_str());
  configure(R"({"devices":[{"name":"EMULATED","type":3}]})");
}

void DeviceTest::TearDown() {
  for (DEVHANDLE h : connected_) SKF_DisConnectDev(h);
  configure("{}");
  tokenEnv_.reset();
}

void DeviceTest::configure(const std::string& json) {
  std::string copy = json;
  ASSERT_EQ(SKF_LoadConfigurationWithContent(&copy[0]), kOk) << json;
}

void DeviceTest::make_token(int type, const std::string& serial, const std::string& label) {
  VOREL_DEVICE* d = nullptr;
  ASSERT_EQ(VorelPKICryptoCreateToken(type, serial.c_str(), label.c_str(), "12345678", "12345678", 1000, &d), VOREL_OK)
      << type << "-" << serial;
  VorelPKICryptoFreeDevice(d);
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

}  // namespace device
