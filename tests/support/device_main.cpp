// The library reads its log path once, on its first line, which it writes as it loads: the
// path must be in the environment before this program starts, so the program starts itself
// again with it when it is not.
#include <gtest/gtest.h>

#include <cstdlib>

#include "device_suite.h"
#include "platform/platform.h"

namespace device {
std::string g_log_path;
}

int main(int argc, char** argv) {
  const char* path = std::getenv("VOREL_SKF_LOG_PATH");
  if (!path || !*path) {
    std::string log = testsupport::make_temp_dir("device") + "device.log";
    testsupport::set_env("VOREL_SKF_LOG_PATH", log.c_str());
    std::vector<std::string> args(argv + 1, argv + argc);
    return testsupport::run_process(argv[0], args);
  }
  device::g_log_path = path;
  testsupport::set_env("VOREL_SKF_LOG_LEVEL", "4");
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
