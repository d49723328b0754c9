#include "support.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "platform/platform.h"

#ifdef _WIN32
#include <direct.h>
#include <process.h>
#else
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

namespace testsupport {

void set_env(const char* name, const char* value) {
#ifdef _WIN32
  _putenv_s(name, value);
#else
  setenv(name, value, 1);
#endif
}

void unset_env(const char* name) {
#ifdef _WIN32
  _putenv_s(name, "");
#else
  unsetenv(name);
#endif
}

ScopedEnv::ScopedEnv(const char* name, const char* value) : name_(name) {
  const char* old = std::getenv(name);
  had_ = old != nullptr;
  if (old) old_ = old;
  if (value)
    set_env(name, value);
  else
    unset_env(name);
}

ScopedEnv::~ScopedEnv() {
  if (had_)
    set_env(name_.c_str(), old_.c_str());
  else
    unset_env(name_.c_str());
}

std::string make_temp_dir(const std::string& tag) {
  static std::atomic<int> counter{0};
  auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
  std::string dir = vorel::platform::temp_dir() + "vorel-test-" + tag + "-" +
                    std::to_string(vorel::platform::process_id()) + "-" + std::to_string(stamp) + "-" +
                    std::to_string(counter++);
#ifdef _WIN32
  _mkdir(dir.c_str());
  return dir + "\\";
#else
  mkdir(dir.c_str(), 0700);
  return dir + "/";
#endif
}

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void write_file(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

bool file_exists(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return static_cast<bool>(in);
}

void LogFile::mark() { offset_ = read_file(path_).size(); }

std::string LogFile::since() const {
  std::string all = read_file(path_);
  std::string text = all.size() > offset_ ? all.substr(offset_) : std::string();
  // The log is a text file: lines end in CR LF on Windows.
  std::string lines;
  lines.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
    lines += text[i];
  }
  return lines;
}

std::vector<std::string> LogFile::lines_since() const {
  std::vector<std::string> lines;
  std::istringstream in(since());
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

std::size_t count(const std::string& haystack, const std::string& needle) {
  std::size_t n = 0;
  for (std::size_t pos = haystack.find(needle); pos != std::string::npos; pos = haystack.find(needle, pos + 1)) ++n;
  return n;
}

namespace {

#ifdef _WIN32
// The C runtime joins argv with blanks: quote the argument, doubling the backslashes that
// precede a quote, so that paths ending in a separator survive.
std::string quote(const std::string& arg) {
  std::string q = "\"";
  std::size_t slashes = 0;
  for (char c : arg) {
    if (c == '\\') {
      ++slashes;
    } else {
      if (c == '"') q.append(slashes + 1, '\\');
      slashes = 0;
    }
    q += c;
  }
  q.append(slashes, '\\');
  return q + "\"";
}
#endif

}  // namespace

int run_process(const std::string& exe, const std::vector<std::string>& args) {
  std::vector<std::string> words{exe};
  words.insert(words.end(), args.begin(), args.end());
#ifdef _WIN32
  for (std::string& w : words) w = quote(w);
#endif
  std::vector<char*> argv;
  for (std::string& w : words) argv.push_back(&w[0]);
  argv.push_back(nullptr);
#ifdef _WIN32
  std::fflush(nullptr);
  return static_cast<int>(_spawnv(_P_WAIT, exe.c_str(), argv.data()));
#else
  pid_t pid;
  if (posix_spawn(&pid, exe.c_str(), nullptr, nullptr, argv.data(), environ) != 0) return -1;
  int status = 0;
  if (waitpid(pid, &status, 0) < 0) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
#endif
}

std::string module_path(const char* fileName) {
  // Absolute, so that a child process that changes folder still finds it.
  char cwd[4096];
#ifdef _WIN32
  if (!_getcwd(cwd, sizeof cwd)) return fileName;
  return std::string(cwd) + "\\" + fileName;
#else
  if (!getcwd(cwd, sizeof cwd)) return fileName;
  return std::string(cwd) + "/" + fileName;
#endif
}

std::string json_escape(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '\\' || c == '"') out += '\\';
    out += c;
  }
  return out;
}

}  // namespace testsupport
