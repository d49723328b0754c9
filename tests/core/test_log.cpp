#include <gtest/gtest.h>

#include <regex>
#include <thread>

#include "core/log.h"
#include "platform/platform.h"
#include "skf.h"
#include "unit.h"

using testsupport::count;
using testsupport::ScopedEnv;

namespace {

struct LevelCase {
  const char* value;  // nullptr: unset
  bool error, warn, info, debug;
};

class LevelRules : public ::testing::TestWithParam<LevelCase> {};

TEST_P(LevelRules, EachTagFollowsItsOwnRule) {
  const LevelCase& c = GetParam();
  ScopedEnv level("VOREL_SKF_LOG_LEVEL", c.value);
  auto log = unit::log_file();
  VLOG_ERROR("levels", "error line");
  VLOG_WARN("levels", "warn line");
  VLOG_INFO("levels", "info line");
  VLOG_DEBUG("levels", "debug line");
  std::string text = log.since();
  EXPECT_EQ(c.error, text.find("[ERROR] [levels] error line") != std::string::npos);
  EXPECT_EQ(c.warn, text.find("[WARN] [levels] warn line") != std::string::npos);
  EXPECT_EQ(c.info, text.find("[INFO] [levels] info line") != std::string::npos);
  EXPECT_EQ(c.debug, text.find("[DEBUG] [levels] debug line") != std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Log, LevelRules,
                         ::testing::Values(LevelCase{nullptr, true, true, true, false},
                                           LevelCase{"0", false, false, false, false},
                                           LevelCase{"abc", false, false, false, false},
                                           LevelCase{"-1", false, false, false, false},
                                           LevelCase{"1", true, false, false, false},
                                           LevelCase{"2", true, true, false, false},
                                           LevelCase{"3", true, true, true, false},
                                           LevelCase{"4", true, true, true, true},
                                           LevelCase{"9", true, true, true, true},
                                           LevelCase{"4x", true, true, true, true}));

TEST(Log, LineHoldsProcessThreadTimeTagFunctionAndMessage) {
  auto log = unit::log_file();
  VLOG_ERROR("layout", "value %d and %s", 42, "text");
  auto lines = log.lines_since();
  ASSERT_EQ(lines.size(), 1u);
  std::smatch m;
  std::regex layout(R"(^(\d+) (\d+) (\d{4})-(\d{2})-(\d{2}) (\d{2}):(\d{2}):(\d{2}):(\d{3}) \[ERROR\] \[layout\] value 42 and text$)");
  ASSERT_TRUE(std::regex_match(lines[0], m, layout)) << lines[0];
  EXPECT_EQ(std::stol(m[1]), vorel::platform::process_id());
  EXPECT_EQ(std::stol(m[2]), vorel::platform::thread_id());
}

TEST(Log, LongMessagesAreWrittenWhole) {
  auto log = unit::log_file();
  std::string big(5000, 'q');
  VLOG_ERROR("big", "%s|end", big.c_str());
  EXPECT_NE(log.since().find(big + "|end"), std::string::npos);
}

// The call trace is DEBUG only; the answer line is written either way, inside the trace.
TEST(Log, TraceClosesOnEveryReturnPath) {
  for (const char* level : {"4", static_cast<const char*>(nullptr)}) {
    ScopedEnv env("VOREL_SKF_LOG_LEVEL", level);
    auto log = unit::log_file();
    EXPECT_EQ(SKF_GenRandom(nullptr, nullptr, 0), static_cast<ULONG>(SAR_INVALIDPARAMERR));
    std::string text = log.since();
    auto open = text.find("[DEBUG] [__CallStackTracer__::__CallStackTracer__] >>>>> SKF_GenRandom");
    auto error = text.find("[ERROR] [SKF_GenRandom] SKF_GenRandom return: 0x0a000006");
    auto close = text.find("[DEBUG] [__CallStackTracer__::~__CallStackTracer__] <<<<< SKF_GenRandom");
    ASSERT_NE(error, std::string::npos);
    if (!level) {
      EXPECT_EQ(text.find(">>>>>"), std::string::npos);
      EXPECT_EQ(text.find("<<<<<"), std::string::npos);
      continue;
    }
    ASSERT_NE(open, std::string::npos);
    ASSERT_NE(close, std::string::npos);
    EXPECT_LT(open, error);
    EXPECT_LT(error, close);
  }
}

struct DumpCase {
  const char* bytes;  // nullptr: no buffer
  long len;
  bool hex;
  const char* expected;
};

TEST(Log, ByteDumperWritesHexOrBase64) {
  const DumpCase cases[] = {
      {"abc", 3, true, "616263"}, {"abc", 3, false, "YWJj"},          {"ab", 2, false, "YWI="},
      {"a", 1, false, "YQ=="},    {"\xff\x00\x10", 3, true, "ff0010"}, {"Man is", 6, false, "TWFuIGlz"},
      {"x", 0, true, ""},         {nullptr, 4, false, ""},
  };
  for (const DumpCase& c : cases) {
    auto log = unit::log_file();
    vorel::_log("data", c.bytes, c.len, c.hex);
    std::string expected = std::string("[DEBUG] [_log] data                : ") + c.expected + "\n";
    EXPECT_NE(log.since().find(expected), std::string::npos) << c.expected;
  }
}

TEST(Log, ValueDumpersUseTheirFormats) {
  auto log = unit::log_file();
  uint32_t flags = 0x1234;
  vorel::_log("flags", &flags);
  vorel::_log("size", 77L);
  vorel::_log("name", "text");
  vorel::_log("built", std::string("str"));
  std::string text = log.since();
  EXPECT_NE(text.find("flags               : 4660 | 0x00001234"), std::string::npos);
  EXPECT_NE(text.find("size                : 77"), std::string::npos);
  EXPECT_NE(text.find("name                : text"), std::string::npos);
  EXPECT_NE(text.find("built               : str"), std::string::npos);
}

TEST(Log, DumpersAreSilentBelowDebug) {
  ScopedEnv level("VOREL_SKF_LOG_LEVEL", "3");
  auto log = unit::log_file();
  vorel::_log("quiet", "abc", 3L, true);
  EXPECT_EQ(log.since().find("quiet"), std::string::npos);
}

TEST(Log, ConcurrentLinesNeverInterleave) {
  auto log = unit::log_file();
  const int threads = 4, perThread = 300;
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([t] {
      std::string payload(200, static_cast<char>('A' + t));
      for (int i = 0; i < perThread; ++i) VLOG_ERROR("race", "%s", payload.c_str());
    });
  }
  for (auto& w : workers) w.join();
  auto lines = log.lines_since();
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(threads * perThread));
  std::regex whole(R"(^\d+ \d+ \S+ \S+ \[ERROR\] \[race\] (A{200}|B{200}|C{200}|D{200})$)");
  for (const std::string& line : lines) ASSERT_TRUE(std::regex_match(line, whole)) << line;
}

}  // namespace
