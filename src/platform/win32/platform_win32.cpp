#include <fcntl.h>
#include <io.h>
#include <windows.h>
// After windows.h:
#include <sddl.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "platform/platform.h"
#include "vorel/vorel_ptr.h"

namespace vorel::platform {

namespace {

// What the library creates for itself (token folders and files, lock files, the log) admits
// the current user and SYSTEM alone, whatever the folder above would lend it: the counterpart of
// 0700 and 0600. Folders pass it on to what is made inside them. Made once per process; where it
// cannot be made (attributes null) objects take their folder's access list, as before.
struct PrivateSecurity {
  SECURITY_ATTRIBUTES folder{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
  SECURITY_ATTRIBUTES file{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
  PrivateSecurity() {
    std::string user = user_sid();
    if (user.empty()) return;
    folder.lpSecurityDescriptor = make("D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;" + user + ")");
    file.lpSecurityDescriptor = make("D:P(A;;FA;;;SY)(A;;FA;;;" + user + ")");
  }
  static void* make(const std::string& sddl) {
    PSECURITY_DESCRIPTOR sd = nullptr;
    return ConvertStringSecurityDescriptorToSecurityDescriptorA(sddl.c_str(), SDDL_REVISION_1, &sd, nullptr) ? sd
                                                                                                              : nullptr;
  }
  static std::string user_sid() {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return std::string();
    union {
      TOKEN_USER user;
      char bytes[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    } info;
    DWORD len = 0;
    char* text = nullptr;
    std::string sid;
    if (GetTokenInformation(token, TokenUser, &info, sizeof info, &len) && ConvertSidToStringSidA(info.user.User.Sid, &text))
      sid = text;
    LocalFree(text);
    CloseHandle(token);
    return sid;
  }
};

SECURITY_ATTRIBUTES* private_attributes(bool folder) {
  PrivateSecurity& s = resident<PrivateSecurity>();
  SECURITY_ATTRIBUTES* a = folder ? &s.folder : &s.file;
  return a->lpSecurityDescriptor ? a : nullptr;
}

}  // namespace

void* dso_open(const char* path) { return reinterpret_cast<void*>(LoadLibraryA(path)); }

fnptr dso_symbol(void* module, const char* name) {
  if (!module || !name) return nullptr;
  return reinterpret_cast<fnptr>(GetProcAddress(static_cast<HMODULE>(module), name));
}

void dso_close(void* module) {
  if (module) FreeLibrary(static_cast<HMODULE>(module));
}

std::string dso_error_text() { return std::string(); }

int last_error() { return static_cast<int>(GetLastError()); }

std::string temp_dir() {
  char buffer[MAX_PATH];
  DWORD n = GetTempPathA(MAX_PATH, buffer);
  if (n == 0 || n >= MAX_PATH) return std::string(".\\");
  return std::string(buffer, n);
}

const char* log_file_suffix() { return "\\vorelskf.log"; }

std::FILE* open_log_file(const char* path, bool shared) {
  // Appends by the system, whoever else writes the file. In the shared folder a symbolic link or
  // junction is opened itself, not followed, and then refused.
  DWORD flags = FILE_ATTRIBUTE_NORMAL | (shared ? FILE_FLAG_OPEN_REPARSE_POINT : 0);
  HANDLE h = CreateFileA(path, FILE_APPEND_DATA | SYNCHRONIZE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                         private_attributes(false), OPEN_ALWAYS, flags, nullptr);
  if (h == INVALID_HANDLE_VALUE) return nullptr;
  BY_HANDLE_FILE_INFORMATION info;
  bool usable = !shared || (GetFileInformationByHandle(h, &info) &&
                            !(info.dwFileAttributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) &&
                            info.nNumberOfLinks == 1);
  int fd = usable ? _open_osfhandle(reinterpret_cast<intptr_t>(h), _O_APPEND | _O_TEXT) : -1;
  if (fd < 0) {
    CloseHandle(h);
    return nullptr;
  }
  std::FILE* file = _fdopen(fd, "a");
  if (!file) _close(fd);  // closes the handle too
  return file;
}

LocalTime local_time() {
  SYSTEMTIME st;
  GetLocalTime(&st);
  return LocalTime{st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond, st.wMilliseconds};
}

long process_id() { return static_cast<long>(GetCurrentProcessId()); }

long thread_id() { return static_cast<long>(GetCurrentThreadId()); }

const char* env_get(const char* name) { return std::getenv(name); }

}  // namespace vorel::platform

// ---- files ----

namespace vorel::platform {

char path_separator() { return '\\'; }

std::string executable_path() {
  char path[MAX_PATH];
  DWORD n = GetModuleFileNameA(nullptr, path, sizeof path);
  return n > 0 && n < sizeof path ? std::string(path, n) : std::string();
}

std::string user_data_dir() {
  const char* local = std::getenv("LOCALAPPDATA");
  return local && *local ? std::string(local) : std::string();
}

bool make_dirs(const std::string& path) {
  if (path.empty()) return false;
  DWORD attr = GetFileAttributesA(path.c_str());
  if (attr != INVALID_FILE_ATTRIBUTES) return (attr & FILE_ATTRIBUTE_DIRECTORY) != 0;
  std::size_t sep = path.find_last_of("\\/");
  // Stop at a drive root such as "C:".
  if (sep != std::string::npos && sep > 0 && path[sep - 1] != ':' && !make_dirs(path.substr(0, sep))) return false;
  return CreateDirectoryA(path.c_str(), private_attributes(true)) || GetLastError() == ERROR_ALREADY_EXISTS;
}

bool read_file(const std::string& path, std::string& out, std::size_t limit) {
  HANDLE h = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                         OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE) return false;
  out.clear();
  char buf[65536];
  DWORD n = 0;
  bool ok = true;
  while (out.size() < limit) {
    DWORD want = static_cast<DWORD>(std::min<std::size_t>(sizeof buf, limit - out.size()));
    if (!(ok = ReadFile(h, buf, want, &n, nullptr) != 0) || n == 0) break;
    out.append(buf, n);
  }
  CloseHandle(h);
  return ok;
}

bool write_file_atomic(const std::string& path, const void* data, std::size_t len) {
  std::string tmp = path + ".tmp" + std::to_string(GetCurrentProcessId());
  // A new file of our own: a leftover at the name lends it nothing.
  DeleteFileA(tmp.c_str());
  HANDLE h = CreateFileA(tmp.c_str(), GENERIC_WRITE, 0, private_attributes(false), CREATE_NEW,
                         FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (h == INVALID_HANDLE_VALUE) return false;
  const char* p = static_cast<const char*>(data);
  bool ok = true;
  while (ok && len > 0) {
    DWORD chunk = len > (1u << 30) ? (1u << 30) : static_cast<DWORD>(len), written = 0;
    ok = WriteFile(h, p, chunk, &written, nullptr) && written == chunk;
    p += written;
    len -= written;
  }
  ok = ok && FlushFileBuffers(h);
  CloseHandle(h);
  // Write-through: the rename is on disk when MoveFileEx returns. A reader that has the file
  // open for a moment (another process listing tokens, a virus scanner) makes the replacement
  // fail with a sharing error: wait for it, up to about a second.
  for (int attempt = 0; ok; ++attempt) {
    if (MoveFileExA(tmp.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) return true;
    DWORD err = GetLastError();
    if ((err != ERROR_ACCESS_DENIED && err != ERROR_SHARING_VIOLATION) || attempt == 1000) break;
    Sleep(attempt < 20 ? 0 : 1);
  }
  DeleteFileA(tmp.c_str());
  return false;
}

bool remove_file(const std::string& path) { return DeleteFileA(path.c_str()) != 0; }

bool list_dir(const std::string& path, std::vector<std::string>& names) {
  WIN32_FIND_DATAA found;
  HANDLE h = FindFirstFileA((path + "\\*").c_str(), &found);
  if (h == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_FILE_NOT_FOUND;
  names.clear();
  do {
    if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) names.push_back(found.cFileName);
  } while (FindNextFileA(h, &found));
  FindClose(h);
  return true;
}

unsigned permissions(const std::string&) { return 0; }

struct FileLock {
  HANDLE h;
};

FileLock* file_lock(const std::string& path, bool forWriting) {
  HANDLE h = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                         private_attributes(false), OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE && !forWriting) {
    // LockFileEx needs only read access. A reader that can open no lock file reads without one.
    h = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return new FileLock{INVALID_HANDLE_VALUE};
  }
  if (h == INVALID_HANDLE_VALUE) return nullptr;
  OVERLAPPED at = {};
  if (!LockFileEx(h, LOCKFILE_EXCLUSIVE_LOCK, 0, 1, 0, &at)) {
    CloseHandle(h);
    return nullptr;
  }
  return new FileLock{h};
}

bool file_lock_exclusive(const FileLock* lock) { return lock && lock->h != INVALID_HANDLE_VALUE; }

void file_unlock(FileLock* lock) {
  if (!lock) return;
  if (lock->h != INVALID_HANDLE_VALUE) {
    OVERLAPPED at = {};
    UnlockFileEx(lock->h, 0, 1, 0, &at);
    CloseHandle(lock->h);
  }
  delete lock;
}

}  // namespace vorel::platform
