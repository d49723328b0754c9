// The unit suites log to a file of their own, chosen before the first line is written.
#include <gtest/gtest.h>

#include "support.h"
#include "unit.h"

namespace unit {
std::string g_log_path;
}

int main(int argc, char** argv) {
  unit::g_log_path = testsupport::make_temp_dir("unit") + "unit.log";
  testsupport::set_env("VOREL_SKF_LOG_PATH", unit::g_log_path.c_str());
  testsupport::set_env("VOREL_SKF_LOG_LEVEL", "4");
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
