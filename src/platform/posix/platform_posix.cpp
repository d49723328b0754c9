#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

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

LocalTime local_time() {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  struct tm tm;
  localtime_r(&ts.tv_sec, &tm);
  return LocalTime{tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour,
                   tm.tm_min,         tm.tm_sec,     static_cast<int>(ts.tv_nsec / 1000000)};
}

long process_id() { return static_cast<long>(getpid()); }

long thread_id() { return static_cast<long>(syscall(SYS_gettid)); }

struct RecursiveLock {
  pthread_mutex_t mutex;
};

RecursiveLock* lock_new() {
  auto* lock = static_cast<RecursiveLock*>(std::calloc(1, sizeof(RecursiveLock)));
  if (!lock) return nullptr;
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  int rc = pthread_mutex_init(&lock->mutex, &attr);
  pthread_mutexattr_destroy(&attr);
  if (rc != 0) {
    std::free(lock);
    return nullptr;
  }
  return lock;
}

bool lock_enter(RecursiveLock* lock) { return lock && pthread_mutex_lock(&lock->mutex) == 0; }

bool lock_leave(RecursiveLock* lock) { return lock && pthread_mutex_unlock(&lock->mutex) == 0; }

void lock_free(RecursiveLock* lock) {
  if (!lock) return;
  pthread_mutex_destroy(&lock->mutex);
  std::free(lock);
}

const char* env_get(const char* name) { return std::getenv(name); }

}  // namespace vorel::platform
