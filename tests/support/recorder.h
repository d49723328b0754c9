// The control side of the recording vendor module (tests/fixtures/vendor_fixture.cpp), reached
// in the module the library loaded: the same file opened again is the same module.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "skf.h"

namespace testsupport {

class Recorder {
 public:
  explicit Recorder(const std::string& modulePath);
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  // Forgets calls and answers; SKF_EnumDev lists "FIXTURE0" again.
  void reset() const { reset_(); }
  // Every later call of function answers code; SAR_OK restores the default behaviour.
  void answer(const char* function, ULONG code) const { answer_(function, code); }
  // The names SKF_EnumDev lists.
  void names(const std::string& multiString) const {
    names_(multiString.data(), static_cast<ULONG>(multiString.size()));
  }
  int calls(const char* function) const { return call(function).count; }
  // The handle the module gave out last (SKF_ConnectDev, SKF_OpenApplication and the like).
  uint64_t handle() const { return handle_(); }
  // The arguments of the last call, pointers as addresses; empty when never called.
  std::vector<uint64_t> last(const char* function) const { return call(function).args; }
  // The first text argument of the last call.
  std::string text(const char* function) const { return call(function).text; }
  // The module's in-memory files: the calls that reached them since the reset, one line each
  // ("Create 4361 304 255 255", "Write 4361 38 38 0", ...); a file's contents (nullopt when
  // there is none); a file removed behind the library's back.
  std::string file_trace() const;
  std::optional<std::vector<unsigned char>> file(const char* name) const;
  void remove_file(const char* name) const { remove_file_(name); }
  // SKF_ReadFile reports the file's size instead of what it read.
  void read_reports_file_size(bool on) const { read_reports_file_size_(on ? TRUE : FALSE); }

 private:
  struct Call {
    int count;
    std::vector<uint64_t> args;
    std::string text;
  };
  Call call(const char* function) const;
  void* module_;
  void (*reset_)();
  void (*answer_)(const char*, ULONG);
  void (*names_)(const char*, ULONG);
  int (*call_)(const char*, uint64_t*, int, int*, char*, int);
  uint64_t (*handle_)();
  int (*file_trace_)(char*, int);
  int (*file_)(const char*, unsigned char*, int);
  void (*remove_file_)(const char*);
  void (*read_reports_file_size_)(BOOL);
};

inline uint64_t arg(const void* p) { return reinterpret_cast<uintptr_t>(p); }

}  // namespace testsupport
