#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"

namespace vorel::platform {

namespace {
thread_local std::string t_dso_error;
}

void* dso_open(const char* path) {
  // Deep binding: a vendor library calling its own SKF_* functions must reach its own, not ours.
  int flags = RTLD_NOW | RTLD_LOCAL;
#ifndef VOREL_NO_DEEPBIND
  flags |= RTLD_DEEPBIND;
#endif
  errno = 0;
  void* module = dlopen(path, flags);
  if (!module) {
    int saved = errno;
    const char* text = dlerror();
    t_dso_error = text ? text : "";
    // dlopen does not always leave errno set; a missing file is the usual cause.
    errno = saved ? saved : (access(path, F_OK) != 0 ? ENOENT : ENOEXEC);
  }
  return module;
}

fnptr dso_symbol(void* module, const char* name) {
  if (!module || !name) return nullptr;
  void* sym = dlsym(module, name);
  fnptr fn;
  static_assert(sizeof(fn) == sizeof(sym), "function and data pointers differ in size");
  std::memcpy(&fn, &sym, sizeof(fn));
  return fn;
}

void dso_close(void* module) {
  if (module) dlclose(module);
}

std::string dso_error_text() { return t_dso_error; }

int last_error() { return errno; }

std::string temp_dir() {
  const char* dir = std::getenv("TMPDIR");
  std::string result = (dir && *dir) ? dir : "/tmp/";
  if (result.back() != '/') result += '/';
  return result;
}

const char* log_file_suffix() { return "/vorelskf.log"; }

std::FILE* open_log_file(const char* path, bool shared) {
  // Non-blocking: a FIFO planted at the path would otherwise hold the caller until a reader came.
  int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY;
  if (shared) flags |= O_NOFOLLOW | O_NONBLOCK;
  int fd = open(path, flags, 0600);
  if (fd < 0) return nullptr;
  bool usable = true;
  if (shared) {
    struct stat st;
    usable = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == geteuid() && st.st_nlink == 1 &&
             ((st.st_mode & 077) == 0 || fchmod(fd, 0600) == 0) && fcntl(fd, F_SETFL, O_APPEND) == 0;
  }
  std::FILE* file = usable ? fdopen(fd, "a") : nullptr;
  if (!file) close(fd);
  return file;
}

LocalTime local_time() {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  struct tm tm;
  localtime_r(&ts.tv_sec, &tm);
  return LocalTime{tm.tm_year + 1900,
                   tm.tm_mon + 1,
                   tm.tm_mday,
                   tm.tm_hour,
                   tm.tm_min,
                   tm.tm_sec,
                   static_cast<int>(ts.tv_nsec / 1000000)};
}

long process_id() { return static_cast<long>(getpid()); }

long thread_id() { return static_cast<long>(syscall(SYS_gettid)); }

const char* env_get(const char* name) { return std::getenv(name); }

}  // namespace vorel::platform

// ---- files ----

#include <dirent.h>
#include <sys/file.h>

namespace vorel::platform {

char path_separator() { return '/'; }

std::string executable_path() {
  char path[4096];
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  return n > 0 ? std::string(path, static_cast<std::size_t>(n)) : std::string();
}

std::string user_data_dir() {
  const char* xdg = std::getenv("XDG_DATA_HOME");
  if (xdg && *xdg) return xdg;
  const char* home = std::getenv("HOME");
  if (home && *home) return std::string(home) + "/.local/share";
  return std::string();
}

bool make_dirs(const std::string& path) {
  if (path.empty()) return false;
  struct stat st;
  if (stat(path.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
  std::size_t slash = path.find_last_of('/');
  if (slash != std::string::npos && slash > 0 && !make_dirs(path.substr(0, slash))) return false;
  return mkdir(path.c_str(), 0700) == 0 || errno == EEXIST;
}

bool read_file(const std::string& path, std::string& out, std::size_t limit) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  out.clear();
  struct stat st;
  if (fstat(fd, &st) == 0 && st.st_size > 0) out.reserve(std::min(limit, static_cast<std::size_t>(st.st_size)));
  char buf[65536];
  ssize_t n = 0;
  while (out.size() < limit) {
    n = read(fd, buf, std::min(sizeof buf, limit - out.size()));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    out.append(buf, static_cast<std::size_t>(n));
  }
  close(fd);
  return n >= 0;
}

namespace {
bool write_all(int fd, const char* p, std::size_t len) {
  while (len > 0) {
    ssize_t n = write(fd, p, len);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    len -= static_cast<std::size_t>(n);
  }
  return true;
}
}  // namespace

bool write_file_atomic(const std::string& path, const void* data, std::size_t len) {
  std::string tmp = path + ".tmp" + std::to_string(getpid());
  // A file of our own, new: whatever sits at the name (a leftover, or a link someone planted in a
  // folder others may write) is removed, not written through, and lends the file no mode.
  unlink(tmp.c_str());
  int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  bool ok = write_all(fd, static_cast<const char*>(data), len) && fsync(fd) == 0;
  ok = close(fd) == 0 && ok;
  if (!ok || rename(tmp.c_str(), path.c_str()) != 0) {
    unlink(tmp.c_str());
    return false;
  }
  // The rename itself is durable once the folder is flushed.
  std::size_t slash = path.find_last_of('/');
  std::string dir = slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
  int dfd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dfd >= 0) {
    fsync(dfd);
    close(dfd);
  }
  return true;
}

bool remove_file(const std::string& path) { return unlink(path.c_str()) == 0; }

bool list_dir(const std::string& path, std::vector<std::string>& names) {
  DIR* dir = opendir(path.c_str());
  if (!dir) return false;
  names.clear();
  while (struct dirent* e = readdir(dir)) {
    std::string name = e->d_name;
    // The entry's type spares a stat per file where the file system records it.
    struct stat st;
    if (e->d_type == DT_REG ||
        (e->d_type == DT_UNKNOWN && stat((path + "/" + name).c_str(), &st) == 0 && S_ISREG(st.st_mode)))
      names.push_back(name);
  }
  closedir(dir);
  return true;
}

unsigned permissions(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? static_cast<unsigned>(st.st_mode & 07777) : 0;
}

struct FileLock {
  int fd;
};

FileLock* file_lock(const std::string& path, bool forWriting) {
  int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0 && !forWriting) {
    // flock needs no write access. A reader that can open no lock file reads without one.
    fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return new FileLock{-1};
  }
  if (fd < 0) return nullptr;
  // flock locks belong to the open file: they also exclude other opens in this process.
  while (flock(fd, LOCK_EX) != 0) {
    if (errno != EINTR) {
      close(fd);
      return nullptr;
    }
  }
  return new FileLock{fd};
}

bool file_lock_exclusive(const FileLock* lock) { return lock && lock->fd >= 0; }

void file_unlock(FileLock* lock) {
  if (!lock) return;
  if (lock->fd >= 0) {
    flock(lock->fd, LOCK_UN);
    close(lock->fd);
  }
  delete lock;
}

}  // namespace vorel::platform
