// Helpers shared by the suites: environment, temporary folders, log files, child processes.
#pragma once

#include <string>
#include <vector>

namespace testsupport {

void set_env(const char* name, const char* value);
void unset_env(const char* name);

// Sets or restores one environment variable for the lifetime of the object.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value);  // value nullptr unsets
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  bool had_;
  std::string old_;
};

// A fresh token folder of the test's own (its path ends with the separator), named in
// VOREL_TOKEN_DIR while it lives.
struct TokenFolder {
  explicit TokenFolder(const char* tag);
  std::string dir;
  ScopedEnv env;
};

// A fresh empty folder under the system temp folder, ending in the separator.
std::string make_temp_dir(const std::string& tag);
std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& text);
bool file_exists(const std::string& path);

// Reads what was appended to a log file since the last mark.
class LogFile {
 public:
  explicit LogFile(std::string path) : path_(std::move(path)) { mark(); }
  void mark();
  std::string since() const;
  std::vector<std::string> lines_since() const;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::size_t offset_ = 0;
};

std::size_t count(const std::string& haystack, const std::string& needle);

// Files standing in for a child's standard streams; empty: inherited.
struct Streams {
  std::string in, out, err;
};

// A program started with arguments, inheriting the environment; killed if still running when
// the object goes.
class Child {
 public:
  Child(const std::string& exe, const std::vector<std::string>& args, const Streams& streams = {});
  Child(const std::string& exe, const std::vector<std::string>& args, const std::string& stdoutPath)
      : Child(exe, args, Streams{"", stdoutPath, ""}) {}
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  bool running() const;
  void kill();
  // Exit code (128 + signal when killed on POSIX); -1 when it never started.
  int wait();

 private:
#ifdef _WIN32
  void* handle_ = nullptr;
#else
  int pid_ = 0;
#endif
};

// Runs a program to its end; returns its exit code, and its standard output when asked.
int run_process(const std::string& exe, const std::vector<std::string>& args);
int run_process(const std::string& exe, const std::vector<std::string>& args, std::string& output);
// The same with the standard input read from a text and the standard error captured too.
int run_process(const std::string& exe, const std::vector<std::string>& args, const std::string& input,
                std::string& output, std::string& errors);

// File names of the built binaries beside the test executables, loadable from the working folder.
std::string module_path(const char* fileName);

std::string json_escape(const std::string& text);

// Whether the file or folder is its owner's alone: on POSIX no group or other permission bits;
// on Windows an access list that admits nobody but the current user and SYSTEM.
bool private_to_owner(const std::string& path);

}  // namespace testsupport
