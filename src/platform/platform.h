// Operating-system services the library needs, one implementation per platform.
#pragma once

#include <cstddef>
#include <string>

namespace vorel::platform {

using fnptr = void (*)(void);

// Dynamic modules. On failure dso_open returns nullptr and last_error() tells why.
void* dso_open(const char* path);
fnptr dso_symbol(void* module, const char* name);
void dso_close(void* module);
// Human-readable reason of the last dso_open failure (empty when unknown).
std::string dso_error_text();

// GetLastError() on Windows, errno elsewhere.
int last_error();

// Temporary folder, always ending in the platform's separator.
std::string temp_dir();
// The fallback log file name, appended to temp_dir() with its own leading separator.
const char* log_file_suffix();

struct LocalTime {
  int year, month, day, hour, minute, second, millisecond;
};
LocalTime local_time();

long process_id();
long thread_id();

// Recursive lock that can be owned by one thread at a time, re-entered by it.
struct RecursiveLock;
RecursiveLock* lock_new();
bool lock_enter(RecursiveLock* lock);
bool lock_leave(RecursiveLock* lock);
void lock_free(RecursiveLock* lock);

// Environment, as the C runtime sees it.
const char* env_get(const char* name);

}  // namespace vorel::platform
