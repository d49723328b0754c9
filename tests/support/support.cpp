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
#include <windows.h>
// After windows.h:
#include <aclapi.h>
#else
#include <fcntl.h>
#include <signal.h>
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

TokenFolder::TokenFolder(const char* tag) : dir(make_temp_dir(tag)), env("VOREL_TOKEN_DIR", dir.c_str()) {}

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

Child::Child(const std::string& exe, const std::vector<std::string>& args, const Streams& streams) {
  std::vector<std::string> words{exe};
  words.insert(words.end(), args.begin(), args.end());
  std::fflush(nullptr);
#ifdef _WIN32
  std::string line;
  for (const std::string& w : words) line += (line.empty() ? "" : " ") + quote(w);
  STARTUPINFOA si = {};
  si.cb = sizeof si;
  SECURITY_ATTRIBUTES sa = {sizeof sa, nullptr, TRUE};
  auto open = [&](const std::string& path, bool reading, DWORD standard) {
    if (path.empty()) return GetStdHandle(standard);
    return CreateFileA(path.c_str(), reading ? GENERIC_READ : GENERIC_WRITE, FILE_SHARE_READ, &sa,
                       reading ? OPEN_EXISTING : CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  };
  bool redirected = !streams.in.empty() || !streams.out.empty() || !streams.err.empty();
  HANDLE handles[3] = {open(streams.in, true, STD_INPUT_HANDLE), open(streams.out, false, STD_OUTPUT_HANDLE),
                       open(streams.err, false, STD_ERROR_HANDLE)};
  if (redirected) {
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = handles[0];
    si.hStdOutput = handles[1];
    si.hStdError = handles[2];
  }
  PROCESS_INFORMATION pi = {};
  // Wine now and then refuses a process start under load; a few more attempts get it.
  for (int attempt = 0; attempt < 5 && !handle_; ++attempt) {
    if (CreateProcessA(exe.c_str(), &line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi)) {
      CloseHandle(pi.hThread);
      handle_ = pi.hProcess;
    } else {
      std::fprintf(stderr, "CreateProcess %s failed: %lu\n", exe.c_str(), GetLastError());
      Sleep(100);
    }
  }
  const std::string* paths[3] = {&streams.in, &streams.out, &streams.err};
  for (int i = 0; i < 3; ++i)
    if (!paths[i]->empty() && handles[i] != INVALID_HANDLE_VALUE) CloseHandle(handles[i]);
#else
  std::vector<char*> argv;
  for (std::string& w : words) argv.push_back(&w[0]);
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (!streams.in.empty()) posix_spawn_file_actions_addopen(&actions, 0, streams.in.c_str(), O_RDONLY, 0);
  if (!streams.out.empty())
    posix_spawn_file_actions_addopen(&actions, 1, streams.out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (!streams.err.empty())
    posix_spawn_file_actions_addopen(&actions, 2, streams.err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t pid;
  if (posix_spawn(&pid, exe.c_str(), &actions, nullptr, argv.data(), environ) == 0) pid_ = pid;
  posix_spawn_file_actions_destroy(&actions);
#endif
}

Child::~Child() {
  if (running()) {
    kill();
    wait();
  }
}

bool Child::running() const {
#ifdef _WIN32
  return handle_ != nullptr;
#else
  return pid_ > 0;
#endif
}

void Child::kill() {
#ifdef _WIN32
  if (handle_) TerminateProcess(handle_, 137);
#else
  if (pid_ > 0) ::kill(pid_, SIGKILL);
#endif
}

int Child::wait() {
  int code = -1;
#ifdef _WIN32
  if (!handle_) return -1;
  DWORD exit = 0;
  if (WaitForSingleObject(handle_, INFINITE) == WAIT_OBJECT_0 && GetExitCodeProcess(handle_, &exit))
    code = static_cast<int>(exit);
  CloseHandle(handle_);
  handle_ = nullptr;
#else
  if (pid_ <= 0) return -1;
  int status = 0;
  if (waitpid(pid_, &status, 0) == pid_) code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  pid_ = 0;
#endif
  return code;
}

int run_process(const std::string& exe, const std::vector<std::string>& args) { return Child(exe, args).wait(); }

int run_process(const std::string& exe, const std::vector<std::string>& args, std::string& output) {
  std::string path = make_temp_dir("out") + "stdout.txt";
  int code = Child(exe, args, path).wait();
  output = read_file(path);
  return code;
}

int run_process(const std::string& exe, const std::vector<std::string>& args, const std::string& input,
                std::string& output, std::string& errors) {
  std::string dir = make_temp_dir("run");
  Streams streams{dir + "stdin.txt", dir + "stdout.txt", dir + "stderr.txt"};
  write_file(streams.in, input);
  int code = Child(exe, args, streams).wait();
  output = read_file(streams.out);
  errors = read_file(streams.err);
  return code;
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

#ifdef _WIN32
bool private_to_owner(const std::string& path) {
  PACL dacl = nullptr;
  PSECURITY_DESCRIPTOR sd = nullptr;
  if (GetNamedSecurityInfoA(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &dacl,
                            nullptr, &sd) != ERROR_SUCCESS)
    return false;
  HANDLE token = nullptr;
  union {
    TOKEN_USER user;
    char bytes[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  } me;
  DWORD len = 0;
  bool known = OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) &&
               GetTokenInformation(token, TokenUser, &me, sizeof me, &len);
  if (token) CloseHandle(token);
  // A null access list admits everyone.
  bool mine = known && dacl;
  for (DWORD i = 0; mine && i < dacl->AceCount; ++i) {
    ACE_HEADER* ace = nullptr;
    if (!GetAce(dacl, i, reinterpret_cast<void**>(&ace))) return LocalFree(sd), false;
    if (ace->AceType != ACCESS_ALLOWED_ACE_TYPE) continue;
    PSID sid = &reinterpret_cast<ACCESS_ALLOWED_ACE*>(ace)->SidStart;
    mine = EqualSid(sid, me.user.User.Sid) || IsWellKnownSid(sid, WinLocalSystemSid);
  }
  LocalFree(sd);
  return mine;
}
#else
bool private_to_owner(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 && (st.st_mode & 077) == 0;
}
#endif

}  // namespace testsupport
