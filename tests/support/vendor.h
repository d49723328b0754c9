// Configurations that route device types to the fixture vendor modules.
#pragma once

#include <string>

#include "support.h"

namespace unit {

inline std::string fixture_path() { return testsupport::module_path(VENDOR_FIXTURE); }
inline std::string empty_path() { return testsupport::module_path(VENDOR_EMPTY); }

// Type 7 is served by the fixture, type 8 by the module without SKF functions.
inline std::string vendor_config() {
  return std::string(R"({"devices":[{"name":"FIXTURE","type":7,"isskf":true,"dllpath":")") +
         testsupport::json_escape(fixture_path()) + R"("},{"name":"EMPTY","type":8,"isskf":true,"dllpath":")" +
         testsupport::json_escape(empty_path()) + R"("},{"name":"EMULATED","type":3}]})";
}

}  // namespace unit
