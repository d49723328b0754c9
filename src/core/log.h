// Levelled logging to one append-only file, the call tracer and the argument dumpers.
#pragma once

#include <cstdint>
#include <string>

namespace vorel {

enum class LogLevel { Error = 1, Warn = 2, Info = 3, Debug = 4 };

// Reads VOREL_SKF_LOG_LEVEL afresh: unset enables all but DEBUG; 0 or text silences all.
bool log_enabled(LogLevel level);

// Closes the log file and forgets its path, for the library's unload (each load would otherwise
// keep a descriptor open). A later line looks the path up and opens the file again.
void log_close();

// The writer: formats one line body and appends "<pid> <tid> <time> <body>\n" under the log mutex.
void log_write(const char* fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

// Composes "<tag> [<func>] <fmt>" and hands it to the writer. Callers test the level first
// (the VLOG_* macros do), so a dropped line costs only the level check.
void log_message(LogLevel level, const char* func, const char* fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

std::string to_hex(const void* data, std::size_t len);
std::string to_base64(const void* data, std::size_t len);

// Opens and closes an export's trace at DEBUG: ">>>>> name" and "<<<<< name".
class CallStackTracer {
 public:
  explicit CallStackTracer(const char* name);
  ~CallStackTracer();
  CallStackTracer(const CallStackTracer&) = delete;
  CallStackTracer& operator=(const CallStackTracer&) = delete;
  const char* name() const { return name_; }

 private:
  const char* name_;
};

// Argument dumpers: one DEBUG line each under the function name "_log", nothing below DEBUG.
void _log(const char* name, const char* text);
void _log(const char* name, const std::string& text);
void _log(const char* name, const uint32_t* value);
void _log(const char* name, long value);
void _log(const char* name, const void* bytes, long len, bool hex);

}  // namespace vorel

#define VLOG_AT(level, func, ...)                                                    \
  do {                                                                               \
    if (::vorel::log_enabled(level)) ::vorel::log_message(level, func, __VA_ARGS__); \
  } while (0)
#define VLOG_ERROR(func, ...) VLOG_AT(::vorel::LogLevel::Error, func, __VA_ARGS__)
#define VLOG_WARN(func, ...) VLOG_AT(::vorel::LogLevel::Warn, func, __VA_ARGS__)
#define VLOG_INFO(func, ...) VLOG_AT(::vorel::LogLevel::Info, func, __VA_ARGS__)
#define VLOG_DEBUG(func, ...) VLOG_AT(::vorel::LogLevel::Debug, func, __VA_ARGS__)
