#pragma once

#include <string>

#include "support.h"

namespace unit {

// The log file every unit suite writes to.
extern std::string g_log_path;

inline testsupport::LogFile log_file() { return testsupport::LogFile(g_log_path); }

}  // namespace unit
