#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "core/config.h"
#include "unit.h"
#include "vendor.h"
#include "vendor/skf_dll.h"

using namespace vorel;
using testsupport::count;

namespace {

const int kResolvedNames = 89;

TEST(SkfDll, ResolvesEveryNameTheVendorExports) {
  auto log = unit::log_file();
  SkfDll* dll = new_skf_dll("FIXTURE", 7, unit::fixture_path().c_str());
  ASSERT_NE(dll, nullptr);
  EXPECT_STREQ(dll->name, "FIXTURE");
  EXPECT_EQ(dll->type, 7);
  EXPECT_NE(dll->SKF_WaitForDevEvent, nullptr);
  EXPECT_NE(dll->SKF_RSADecrypt, nullptr);
  EXPECT_NE(dll->SKF_ECCDecrypt_vendor, nullptr);
  EXPECT_NE(dll->SKF_ECCDecryptEx_vendor, nullptr);
  std::string text = log.since();
  EXPECT_EQ(count(text, "vorel_dso_getfunction "), 0u);
  EXPECT_NE(text.find("[DEBUG] [new_skf_dll] dll_path : " + unit::fixture_path()), std::string::npos);
  free_skf_dll(dll);
}

TEST(SkfDll, ModuleWithoutSkfFunctionsIsKeptWithAWarningPerName) {
  auto log = unit::log_file();
  SkfDll* dll = new_skf_dll("EMPTY", 8, unit::empty_path().c_str());
  ASSERT_NE(dll, nullptr);
  EXPECT_EQ(dll->SKF_GenRandom, nullptr);
  std::string text = log.since();
  EXPECT_EQ(count(text, "[WARN] [new_skf_dll] vorel_dso_getfunction "), static_cast<std::size_t>(kResolvedNames));
  EXPECT_NE(text.find("[WARN] [new_skf_dll] vorel_dso_getfunction SKF_WaitForDevEvent fail"), std::string::npos);
  EXPECT_NE(text.find("vorel_dso_getfunction SKF_ECCDecryptEx fail"), std::string::npos);
  free_skf_dll(dll);
}

TEST(SkfDll, UnloadablePathLogsTheSystemError) {
  auto log = unit::log_file();
  std::string missing = testsupport::make_temp_dir("dll") + "no-such-vendor.so";
  EXPECT_EQ(new_skf_dll("MISSING", 9, missing.c_str()), nullptr);
  std::string text = log.since();
  auto at = text.find("[ERROR] [new_skf_dll] vorel_dso_load fail, error = ");
  ASSERT_NE(at, std::string::npos);
  int error = std::atoi(text.c_str() + at + std::strlen("[ERROR] [new_skf_dll] vorel_dso_load fail, error = "));
  EXPECT_NE(error, 0);
}

TEST(SkfDll, FreeAcceptsNull) { free_skf_dll(nullptr); }

class SkfSetTest : public ::testing::Test {
 protected:
  void TearDown() override {
    GetVorelSKFConfig().LoadWithContent("{}");
    free_skf_set(GetSkfSet());
  }
};

TEST_F(SkfSetTest, OnlyVendorEntriesLoadAndFailuresFallToTheCryptoRoute) {
  auto log = unit::log_file();
  std::string config = std::string(R"({"devices":[{"type":4,"isskf":false,"dllpath":"never-loaded.so"},)") +
                       R"({"type":5,"isskf":true,"dllpath":"missing-vendor-module"},)" +
                       R"({"type":7,"isskf":true,"dllpath":")" + testsupport::json_escape(unit::fixture_path()) +
                       R"("}]})";
  ASSERT_EQ(SKF_LoadConfigurationWithContent(const_cast<char*>(config.c_str())), static_cast<ULONG>(SAR_OK));
  EXPECT_EQ(vendor_module(4), nullptr);
  EXPECT_EQ(vendor_module(5), nullptr);
  EXPECT_NE(vendor_module(7), nullptr);
  std::string text = log.since();
  EXPECT_EQ(text.find("dll_path : never-loaded.so"), std::string::npos);
  EXPECT_NE(text.find("dll_path : missing-vendor-module"), std::string::npos);
  EXPECT_EQ(count(text, "vorel_dso_load fail"), 1u);
}

TEST_F(SkfSetTest, LaterEntryOfTheSameTypeReplacesTheEarlier) {
  std::string path = testsupport::json_escape(unit::fixture_path());
  std::string config = R"({"devices":[{"name":"FIRST","type":7,"isskf":true,"dllpath":")" + path +
                       R"("},{"name":"SECOND","type":7,"isskf":true,"dllpath":")" + path + R"("}]})";
  ASSERT_EQ(SKF_LoadConfigurationWithContent(const_cast<char*>(config.c_str())), static_cast<ULONG>(SAR_OK));
  ASSERT_NE(vendor_module(7), nullptr);
  EXPECT_STREQ(vendor_module(7)->name, "SECOND");
  EXPECT_EQ(GetSkfSet().size(), 1u);
}

// Every module is freed, once, before any is loaded again, and a type that stays configured gets
// a module record of its own (calls running meanwhile wait at the gate: test_threads.cpp).
TEST_F(SkfSetTest, ReloadFreesEveryModuleOnceBeforeLoadingAny) {
  std::string config = unit::vendor_config();
  ASSERT_EQ(SKF_LoadConfigurationWithContent(const_cast<char*>(config.c_str())), static_cast<ULONG>(SAR_OK));
  auto log = unit::log_file();
  ASSERT_EQ(SKF_LoadConfigurationWithContent(const_cast<char*>(config.c_str())), static_cast<ULONG>(SAR_OK));
  std::string text = log.since();
  EXPECT_EQ(count(text, "[DEBUG] [free_skf_set] free skf dll, type : 7"), 1u);
  EXPECT_EQ(count(text, "[DEBUG] [free_skf_set] free skf dll, type : 8"), 1u);
  EXPECT_EQ(count(text, "free skf dll, type : 3"), 0u);
  EXPECT_LT(text.rfind("free skf dll"), text.find("dll_path : "));
  EXPECT_EQ(count(text, "[DEBUG] [new_skf_dll] type : 7"), 1u);
}

TEST_F(SkfSetTest, FailedReloadLeavesTheMapAsItWas) {
  std::string config = unit::vendor_config();
  ASSERT_EQ(SKF_LoadConfigurationWithContent(const_cast<char*>(config.c_str())), static_cast<ULONG>(SAR_OK));
  auto before = vendor_module(7);
  auto log = unit::log_file();
  EXPECT_EQ(SKF_LoadConfigurationWithContent(const_cast<char*>("{")), static_cast<ULONG>(SAR_FAIL));
  std::string missing = testsupport::make_temp_dir("cfg") + "none.json";
  EXPECT_EQ(SKF_LoadConfigurationWithPath(const_cast<char*>(missing.c_str())), static_cast<ULONG>(SAR_FAIL));
  EXPECT_EQ(vendor_module(7), before);
  EXPECT_EQ(GetVorelSKFConfig().devices()->size(), 3u);
  std::string text = log.since();
  EXPECT_NE(text.find("Fail to parse JSON from content, because: "), std::string::npos);
  EXPECT_NE(text.find("SKF_LoadConfigurationWithContent return: 0x0a000001"), std::string::npos);
  EXPECT_EQ(text.find("free skf dll"), std::string::npos);
}

}  // namespace
