#include <gtest/gtest.h>

#include <functional>

#include "core/config.h"
#include "unit.h"

using vorel::DeviceConfig;
using vorel::VorelSKFConfig;

namespace {

TEST(Config, FullEntryInOrder) {
  VorelSKFConfig config;
  ASSERT_TRUE(config.LoadWithContent(R"({"devices":[
      {"name":"A","type":2,"dllpath":"a.dll","isskf":true,"useMasterFile":false,"pidvids":["VID_096E&PID_0702","x"]},
      {"name":"B","type":5}]})"));
  ASSERT_EQ(config.devices()->size(), 2u);
  const DeviceConfig& a = (*config.devices())[0];
  EXPECT_EQ(a.name, "A");
  EXPECT_EQ(a.type, 2);
  EXPECT_EQ(a.dllpath, "a.dll");
  EXPECT_TRUE(a.isskf);
  EXPECT_FALSE(a.useMasterFile);
  EXPECT_EQ(a.pidvids, (std::vector<std::string>{"VID_096E&PID_0702", "x"}));
  EXPECT_EQ((*config.devices())[1].name, "B");
  EXPECT_EQ(config.find(5).get(), &(*config.devices())[1]);
  EXPECT_EQ(config.find(7), nullptr);
}

struct ConversionCase {
  const char* entry;
  bool loads;
  std::function<void(const DeviceConfig&)> check;
};

TEST(Config, ValuesOfOtherTypesConvertOrFail) {
  const ConversionCase cases[] = {
      {R"({"type":3})", true,
       [](const DeviceConfig& d) {  // the defaults of every other key
         EXPECT_EQ(d.name, "");
         EXPECT_EQ(d.dllpath, "");
         EXPECT_FALSE(d.isskf);
         EXPECT_TRUE(d.useMasterFile);
         EXPECT_TRUE(d.pidvids.empty());
         EXPECT_FALSE(d.hasDevAuthKey);
       }},
      {R"({"type":true})", true, [](const DeviceConfig& d) { EXPECT_EQ(d.type, 1); }},
      {R"({"type":2.9})", true, [](const DeviceConfig& d) { EXPECT_EQ(d.type, 2); }},
      {R"({"type":null})", true, [](const DeviceConfig& d) { EXPECT_EQ(d.type, 0); }},
      {R"({"isskf":1})", true, [](const DeviceConfig& d) { EXPECT_TRUE(d.isskf); }},
      {R"({"useMasterFile":0})", true, [](const DeviceConfig& d) { EXPECT_FALSE(d.useMasterFile); }},
      {R"({"name":5})", true, [](const DeviceConfig& d) { EXPECT_EQ(d.name, "5"); }},
      {R"({"name":false})", true, [](const DeviceConfig& d) { EXPECT_EQ(d.name, "false"); }},
      {R"({"pidvids":["a",7,true]})", true,
       [](const DeviceConfig& d) { EXPECT_EQ(d.pidvids, (std::vector<std::string>{"a", "7", "true"})); }},
      {R"({"devAuthKey":"0123456789abcdefFEDCBA9876543210"})", true,
       [](const DeviceConfig& d) {
         EXPECT_TRUE(d.hasDevAuthKey);
         EXPECT_EQ(d.devAuthKey[0], 0x01);
         EXPECT_EQ(d.devAuthKey[8], 0xFE);
         EXPECT_EQ(d.devAuthKey[15], 0x10);
       }},
      {R"({"devAuthKey":"0123456789abcdef0123456789abcde"})", false, nullptr},
      {R"({"devAuthKey":"0123456789abcdef0123456789abcdeg"})", false, nullptr},
      {R"({"type":"3"})", false, nullptr},
      {R"({"type":4294967296})", false, nullptr},
      {R"({"isskf":"yes"})", false, nullptr},
      {R"({"name":[1]})", false, nullptr},
      {R"(7)", false, nullptr},
  };
  VorelSKFConfig empty;
  ASSERT_TRUE(empty.LoadWithContent(R"({"other":1})"));
  EXPECT_TRUE(empty.devices()->empty());
  for (const ConversionCase& c : cases) {
    VorelSKFConfig config;
    std::string doc = std::string(R"({"devices":[)") + c.entry + "]}";
    ASSERT_EQ(config.LoadWithContent(doc.c_str()), c.loads) << c.entry;
    if (c.loads) {
      ASSERT_EQ(config.devices()->size(), 1u);
      c.check((*config.devices())[0]);
    }
  }
}

// Every failed load says why, in the form of its source.
TEST(Config, FailedLoadsAreLoggedWithTheirCause) {
  std::string dir = testsupport::make_temp_dir("cfg");
  testsupport::write_file(dir + "bad.json", "{\"devices\": [");
  const struct {
    std::function<bool(VorelSKFConfig&)> load;
    std::string line;
  } cases[] = {
      {[](VorelSKFConfig& c) { return c.LoadWithContent("{"); },
       "[ERROR] [VorelSKFConfig::LoadWithContent] Fail to parse JSON from content, because: "},
      {[&](VorelSKFConfig& c) { return c.LoadWithPath((dir + "absent.json").c_str()); },
       "[WARN] [VorelSKFConfig::LoadWithPath] file " + dir + "absent.json not found"},
      {[&](VorelSKFConfig& c) { return c.LoadWithPath((dir + "bad.json").c_str()); },
       "Fail to parse JSON from config file, because: "},
  };
  for (const auto& c : cases) {
    auto log = unit::log_file();
    VorelSKFConfig config;
    EXPECT_FALSE(c.load(config)) << c.line;
    std::string text = log.since();
    auto at = text.find(c.line);
    ASSERT_NE(at, std::string::npos) << text;
    if (c.line.find("parse") != std::string::npos) {
      EXPECT_NE(text.find("parse error", at), std::string::npos);
    }
  }
}

TEST(Config, FailedReloadKeepsTheEntriesSuccessfulOneReplacesThem) {
  VorelSKFConfig config;
  ASSERT_TRUE(config.LoadWithContent(R"({"devices":[{"type":1},{"type":2}]})"));
  EXPECT_FALSE(config.LoadWithContent("not json"));
  EXPECT_FALSE(config.LoadWithContent(R"({"devices":[{"type":"x"}]})"));
  EXPECT_EQ(config.devices()->size(), 2u);
  ASSERT_TRUE(config.LoadWithContent(R"({"devices":[{"type":9}]})"));
  ASSERT_EQ(config.devices()->size(), 1u);
  EXPECT_EQ((*config.devices())[0].type, 9);
}

TEST(Config, FirstLoadableLocationWins) {
  std::string dir = testsupport::make_temp_dir("cfg");
  testsupport::write_file(dir + "first.json", R"({"devices":[{"type":11}]})");
  testsupport::write_file(dir + "second.json", R"({"devices":[{"type":22}]})");
  VorelSKFConfig config;
  ASSERT_TRUE(config.LoadFirst({dir + "first.json", dir + "second.json"}));
  EXPECT_EQ((*config.devices())[0].type, 11);
  VorelSKFConfig fallback;
  ASSERT_TRUE(fallback.LoadFirst({dir + "missing.json", dir + "second.json"}));
  EXPECT_EQ((*fallback.devices())[0].type, 22);
  VorelSKFConfig none;
  EXPECT_FALSE(none.LoadFirst({dir + "missing.json"}));
  EXPECT_TRUE(none.devices()->empty());
}

TEST(Config, CurrentFolderFileComesFirst) {
  const auto& paths = vorel::default_config_paths();
  ASSERT_EQ(paths.size(), 2u);
  EXPECT_EQ(paths[0], "vorelskf.json");
}

}  // namespace
