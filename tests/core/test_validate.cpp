#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <set>

#include "core/validate.h"
#include "skf.h"
#include "unit.h"

using testsupport::ScopedEnv;

namespace {

// Distinct non-null values for handles and outputs: validation never looks behind them.
HANDLE const kHandle = reinterpret_cast<HANDLE>(0x1000);
BYTE g_buf[16];
ULONG g_ulong;
ECCPUBLICKEYBLOB g_eccPub;
ECCSIGNATUREBLOB g_sig;
BLOCKCIPHERPARAM g_param;
HANDLE g_handleOut;

struct ValidationCase {
  const char* what;
  std::function<ULONG()> call;
  ULONG expected;
  const char* message;  // the validator's ERROR text expected in the log
};

class Validation : public ::testing::TestWithParam<ValidationCase> {};

TEST_P(Validation, FirstFailingCheckDecides) {
  const ValidationCase& c = GetParam();
  auto log = unit::log_file();
  EXPECT_EQ(c.call(), c.expected);
  EXPECT_NE(log.since().find(c.message), std::string::npos) << log.since();
}

INSTANTIATE_TEST_SUITE_P(
    Exports, Validation,
    ::testing::Values(
        ValidationCase{"GenRandom null device", [] { return SKF_GenRandom(nullptr, g_buf, 4); }, SAR_INVALIDPARAMERR,
                       "[_is_valid_pointer] hDev is an invalid pointer, at `src/exports/symmetric.cpp:"},
        ValidationCase{"GenRandom null buffer", [] { return SKF_GenRandom(kHandle, nullptr, 4); }, SAR_INVALIDPARAMERR,
                       "pbRandom is an invalid pointer"},
        ValidationCase{"GenRandom zero length", [] { return SKF_GenRandom(kHandle, g_buf, 0); }, SAR_INVALIDPARAMERR,
                       "[_is_valid_length] ulRandomLen is an invalid length value"},
        ValidationCase{"VerifyPIN checks its output first",
                       [] { return SKF_VerifyPIN(kHandle, USER_TYPE, const_cast<char*>(""), nullptr); },
                       SAR_INVALIDPARAMERR, "pulRetryCount is an invalid pointer"},
        ValidationCase{"VerifyPIN null PIN", [] { return SKF_VerifyPIN(kHandle, USER_TYPE, nullptr, &g_ulong); },
                       SAR_INVALIDPARAMERR, "[_is_valid_string] szPIN is an invalid value"},
        ValidationCase{"CreateFile all-ones rights",
                       [] { return SKF_CreateFile(kHandle, const_cast<char*>("f"), 8, 0xFFFFFFFF, 1); },
                       SAR_INVALIDPARAMERR, "[_is_valid_id] ulReadRights is an invalid id"},
        ValidationCase{"CreateFile zero rights",
                       [] { return SKF_CreateFile(kHandle, const_cast<char*>("f"), 8, 0xFFFFFFFE, 0); },
                       SAR_INVALIDPARAMERR, "ulWriteRights is an invalid id"},
        ValidationCase{"bytes: null pointer reported before zero length",
                       [] { return SKF_DigestUpdate(kHandle, nullptr, 0); }, SAR_INVALIDPARAMERR,
                       "[_is_valid_bytes] pbData is an invalid pointer"},
        ValidationCase{"bytes: zero length", [] { return SKF_DigestUpdate(kHandle, g_buf, 0); }, SAR_INVALIDPARAMERR,
                       "[_is_valid_bytes] ulDataLen is an invalid length value"},
        ValidationCase{"ECCVerify blob", [] { return SKF_ECCVerify(kHandle, nullptr, g_buf, 1, &g_sig); },
                       SAR_INVALIDPARAMERR, "(unsigned char*)pECCPubKeyBlob is an invalid pointer"},
        ValidationCase{"ECCVerify signature",
                       [] { return SKF_ECCVerify(kHandle, &g_eccPub, g_buf, 1, nullptr); }, SAR_INVALIDPARAMERR,
                       "(unsigned char*)pSignature is an invalid pointer"},
        ValidationCase{"ConnectDev null output",
                       [] { return SKF_ConnectDev(const_cast<char*>("1#x"), nullptr); }, SAR_INVALIDPARAMERR,
                       "phDev is an invalid pointer"},
        ValidationCase{"EncryptInit answers invalid handle",
                       [] { return SKF_EncryptInit(nullptr, g_param); }, SAR_INVALIDHANDLEERR,
                       "hKey is an invalid pointer"},
        ValidationCase{"Decrypt answers invalid handle",
                       [] { return SKF_Decrypt(kHandle, nullptr, 0, g_buf, &g_ulong); }, SAR_INVALIDHANDLEERR,
                       "pbEncryptedData is an invalid pointer"},
        ValidationCase{"EncryptFinal length label",
                       [] { return SKF_EncryptFinal(kHandle, g_buf, nullptr); }, SAR_INVALIDHANDLEERR,
                       "ulEncryptedDataLen is an invalid pointer"},
        ValidationCase{"Mac output length", [] { return SKF_Mac(kHandle, g_buf, 1, nullptr, nullptr); },
                       SAR_INVALIDPARAMERR, "pulMacLen is an invalid pointer"},
        ValidationCase{"LoadConfigurationWithContent", [] { return SKF_LoadConfigurationWithContent(nullptr); },
                       SAR_INVALIDPARAMERR, "content is an invalid value"},
        ValidationCase{"LoadConfigurationWithPath", [] { return SKF_LoadConfigurationWithPath(nullptr); },
                       SAR_INVALIDPARAMERR, "path is an invalid value"},
        ValidationCase{"agreement key range", [] {
                         return SKF_GenerateAgreementDataWithECC(kHandle, SGD_SM2_3, nullptr, g_buf, 1, &g_handleOut);
                       },
                       SAR_INVALIDPARAMERR, "(unsigned char*)pTempECCPubKeyBlob is an invalid pointer"}));

TEST(Validation, EveryCheckOfOneExportReportsTheSameLine) {
  auto log = unit::log_file();
  SKF_GenRandom(nullptr, g_buf, 4);
  SKF_GenRandom(kHandle, nullptr, 4);
  SKF_GenRandom(kHandle, g_buf, 0);
  std::string text = log.since();
  std::regex place(R"(at `src/exports/symmetric\.cpp:(\d+)`)");
  std::set<std::string> lines;
  for (std::sregex_iterator it(text.begin(), text.end(), place), end; it != end; ++it) lines.insert((*it)[1]);
  ASSERT_EQ(lines.size(), 1u);
}

TEST(Validation, FixedSizeStructuresAreDumpedWhole) {
  auto log = unit::log_file();
  ECCPUBLICKEYBLOB blob{};
  blob.BitLen = 256;
  blob.XCoordinate[63] = 0xAB;
  SKF_ECCVerify(kHandle, &blob, nullptr, 0, &g_sig);
  std::string text = log.since();
  std::string hex = "00010000" + std::string(126, '0') + "ab" + std::string(128, '0');
  EXPECT_NE(text.find("(unsigned char*)pECCPubKeyBlob: " + hex + "\n"), std::string::npos);
  EXPECT_NE(text.find("sizeof(*pECCPubKeyBlob): 132\n"), std::string::npos);
}

TEST(Validation, BlockCipherParamIsCheckedAs44Bytes) {
  auto log = unit::log_file();
  SKF_DecryptInit(kHandle, g_param);
  EXPECT_NE(log.since().find("sizeof(DecryptParam)"), std::string::npos);
  EXPECT_NE(log.since().find(": 44\n"), std::string::npos);
}

TEST(Validation, EmptyTextIsAcceptedOnlyNullFails) {
  int line = 7;
  EXPECT_TRUE(vorel::_is_valid_string("f", line, "s", ""));
  EXPECT_FALSE(vorel::_is_valid_string("f", line, "s", nullptr));
  EXPECT_TRUE(vorel::_is_valid_id("f", line, "id", 0xFFFFFFFE));
  EXPECT_FALSE(vorel::_is_valid_id("f", line, "id", 0));
}

TEST(Validation, SilentAtLevelZeroButStillRefused) {
  ScopedEnv level("VOREL_SKF_LOG_LEVEL", "0");
  auto log = unit::log_file();
  EXPECT_EQ(SKF_GenRandom(kHandle, g_buf, 0), static_cast<ULONG>(SAR_INVALIDPARAMERR));
  EXPECT_EQ(log.since(), "");
}

TEST(Validation, EventAndKeyAgreementStepAnswerNotEmulatedWithoutChecks) {
  auto log = unit::log_file();
  EXPECT_EQ(SKF_WaitForDevEvent(nullptr, nullptr, nullptr), static_cast<ULONG>(SAR_NOT_EMULATED));
  EXPECT_EQ(SKF_CancelWaitForDevEvent(), static_cast<ULONG>(SAR_NOT_EMULATED));
  EXPECT_EQ(SKF_GenerateKeyWithECC(nullptr, nullptr, nullptr, nullptr, 0, nullptr),
            static_cast<ULONG>(SAR_NOT_EMULATED));
  std::string text = log.since();
  EXPECT_NE(text.find("[SKF_WaitForDevEvent] SKF_WaitForDevEvent return: 0x0a000034"), std::string::npos);
  EXPECT_NE(text.find("[SKF_GenerateKeyWithECC] SKF_GenerateKeyWithECC return: 0x0a000034"), std::string::npos);
  EXPECT_EQ(text.find("invalid pointer"), std::string::npos);
}

}  // namespace
