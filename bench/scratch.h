// A token folder of the benchmark's own, removed when it ends, and the default log level.
#pragma once

#include <cstdlib>
#include <string>

#include <stdlib.h>

class ScratchTokens {
 public:
  ScratchTokens() {
    ok_ = mkdtemp(dir_) != nullptr;
    if (ok_) setenv("VOREL_TOKEN_DIR", dir_, 1);
    // The default level: the variable unset, so DEBUG tracing is off but checked on every call.
    unsetenv("VOREL_SKF_LOG_LEVEL");
  }
  ~ScratchTokens() {
    if (ok_) std::system((std::string("rm -rf ") + dir_).c_str());
  }
  bool ok() const { return ok_; }

 private:
  char dir_[32] = "/tmp/vorel-bench-XXXXXX";
  bool ok_ = false;
};
