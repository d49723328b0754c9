#include <windows.h>

#include <cstdlib>

#include "platform/platform.h"

namespace vorel::platform {

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

LocalTime local_time() {
  SYSTEMTIME st;
  GetLocalTime(&st);
  return LocalTime{st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond, st.wMilliseconds};
}

long process_id() { return static_cast<long>(GetCurrentProcessId()); }

long thread_id() { return static_cast<long>(GetCurrentThreadId()); }

struct RecursiveLock {
  CRITICAL_SECTION section;
};

RecursiveLock* lock_new() {
  auto* lock = static_cast<RecursiveLock*>(std::calloc(1, sizeof(RecursiveLock)));
  if (!lock) return nullptr;
  InitializeCriticalSection(&lock->section);
  return lock;
}

bool lock_enter(RecursiveLock* lock) {
  if (!lock) return false;
  EnterCriticalSection(&lock->section);
  return true;
}

bool lock_leave(RecursiveLock* lock) {
  if (!lock) return false;
  LeaveCriticalSection(&lock->section);
  return true;
}

void lock_free(RecursiveLock* lock) {
  if (!lock) return;
  DeleteCriticalSection(&lock->section);
  std::free(lock);
}

const char* env_get(const char* name) { return std::getenv(name); }

}  // namespace vorel::platform
