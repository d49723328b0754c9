#include "core/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/platform.h"

namespace vorel {

namespace {

// Process-wide until the library unloads (log_close); lines may be written until then. The
// mutex guards all of them.
FILE* g_file = nullptr;
bool g_env_looked_up = false;
char* g_env_path = nullptr;
bool g_fallback_built = false;
char* g_fallback_path = nullptr;
std::mutex g_write_mutex;

const char* tag_of(LogLevel level) {
  switch (level) {
    case LogLevel::Error:
      return "[ERROR]";
    case LogLevel::Warn:
      return "[WARN]";
    case LogLevel::Info:
      return "[INFO]";
    case LogLevel::Debug:
      return "[DEBUG]";
  }
  return "[DEBUG]";
}

char* copy_text(const char* text) {
  std::size_t n = std::strlen(text) + 1;
  auto* copy = static_cast<char*>(std::malloc(n));
  if (copy) std::memcpy(copy, text, n);
  return copy;
}

// The path decision: the variable names the file itself; otherwise, or when it cannot be
// opened, the temp folder's file, which others may have planted something at. Neither opening:
// the line is lost, the next one tries again.
FILE* open_log() {
  if (!g_env_looked_up) {
    const char* value = platform::env_get("VOREL_SKF_LOG_PATH");
    g_env_path = value ? copy_text(value) : nullptr;
    g_env_looked_up = true;
  }
  if (!g_fallback_built) {
    std::string path = platform::temp_dir() + platform::log_file_suffix();
    g_fallback_path = copy_text(path.c_str());
    g_fallback_built = true;
  }
  FILE* file = nullptr;
  if (g_env_path) file = platform::open_log_file(g_env_path, false);
  if (!file && g_fallback_path) file = platform::open_log_file(g_fallback_path, true);
  return file;
}

// Formats into the stack buffer when it fits, else into a heap block the caller frees.
char* format_into(char* stack, std::size_t size, const char* fmt, va_list args) {
  va_list copy;
  va_copy(copy, args);
  int n = std::vsnprintf(stack, size, fmt, copy);
  va_end(copy);
  if (n <= 0) return nullptr;
  if (static_cast<std::size_t>(n) < size) return stack;
  auto* heap = static_cast<char*>(std::malloc(static_cast<std::size_t>(n) + 1));
  if (!heap) return nullptr;
  std::vsnprintf(heap, static_cast<std::size_t>(n) + 1, fmt, args);
  return heap;
}

void write_line(const char* fmt, va_list args) {
  platform::LocalTime t = platform::local_time();
  char when[64];
  std::snprintf(when, sizeof when, "%d-%02d-%02d %02d:%02d:%02d:%03d", t.year, t.month, t.day, t.hour, t.minute,
                t.second, t.millisecond);
  char stack[1024];
  char* body = format_into(stack, sizeof stack, fmt, args);
  if (!body) return;
  {
    std::lock_guard<std::mutex> guard(g_write_mutex);
    if (!g_file) g_file = open_log();
    if (g_file) {
      std::fprintf(g_file, "%ld %ld %s %s\n", platform::process_id(), platform::thread_id(), when, body);
      std::fflush(g_file);
    }
  }
  if (body != stack) std::free(body);
}

}  // namespace

void log_close() {
  std::lock_guard<std::mutex> guard(g_write_mutex);
  if (g_file) std::fclose(g_file);
  g_file = nullptr;
  std::free(g_env_path);
  std::free(g_fallback_path);
  g_env_path = g_fallback_path = nullptr;
  g_env_looked_up = g_fallback_built = false;
}

bool log_enabled(LogLevel level) {
  const char* value = platform::env_get("VOREL_SKF_LOG_LEVEL");
  if (!value) return level != LogLevel::Debug;
  return std::atol(value) >= static_cast<long>(level);
}

void log_write(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  write_line(fmt, args);
  va_end(args);
}

void log_message(LogLevel level, const char* func, const char* fmt, ...) {
  // The writer's format is the tag, the function in brackets and the caller's format, joined.
  const char* tag = tag_of(level);
  std::size_t need = std::strlen(tag) + std::strlen(func) + std::strlen(fmt) + 5;
  char stack[512];
  char* composed = need <= sizeof stack ? stack : static_cast<char*>(std::malloc(need));
  if (!composed) return;
  std::snprintf(composed, need, "%s [%s] %s", tag, func, fmt);
  va_list args;
  va_start(args, fmt);
  write_line(composed, args);
  va_end(args);
  if (composed != stack) std::free(composed);
}

std::string to_hex(const void* data, std::size_t len) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  if (!data) return out;
  out.resize(len * 2);
  const auto* p = static_cast<const unsigned char*>(data);
  for (std::size_t i = 0; i < len; ++i) {
    out[2 * i] = digits[p[i] >> 4];
    out[2 * i + 1] = digits[p[i] & 0x0F];
  }
  return out;
}

std::string to_base64(const void* data, std::size_t len) {
  static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  if (!data) return out;
  const auto* p = static_cast<const unsigned char*>(data);
  out.reserve((len + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 2 < len; i += 3) {
    uint32_t v = (uint32_t(p[i]) << 16) | (uint32_t(p[i + 1]) << 8) | p[i + 2];
    out += alphabet[(v >> 18) & 63];
    out += alphabet[(v >> 12) & 63];
    out += alphabet[(v >> 6) & 63];
    out += alphabet[v & 63];
  }
  if (i < len) {
    uint32_t v = uint32_t(p[i]) << 16;
    if (i + 1 < len) v |= uint32_t(p[i + 1]) << 8;
    out += alphabet[(v >> 18) & 63];
    out += alphabet[(v >> 12) & 63];
    out += (i + 1 < len) ? alphabet[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

CallStackTracer::CallStackTracer(const char* name) : name_(name) {
  VLOG_DEBUG("__CallStackTracer__::__CallStackTracer__", ">>>>> %s", name_);
}

CallStackTracer::~CallStackTracer() { VLOG_DEBUG("__CallStackTracer__::~__CallStackTracer__", "<<<<< %s", name_); }

void _log(const char* name, const char* text) { VLOG_DEBUG("_log", "%-20s: %s", name, text ? text : ""); }

void _log(const char* name, const std::string& text) { VLOG_DEBUG("_log", "%-20s: %s", name, text.c_str()); }

void _log(const char* name, const uint32_t* value) {
  if (!log_enabled(LogLevel::Debug)) return;
  uint32_t v = value ? *value : 0;
  log_message(LogLevel::Debug, "_log", "%-20s: %d | 0x%08x", name, static_cast<int>(v), v);
}

void _log(const char* name, long value) { VLOG_DEBUG("_log", "%-20s: %ld", name, value); }

void _log(const char* name, const void* bytes, long len, bool hex) {
  if (!log_enabled(LogLevel::Debug)) return;
  std::string text;
  if (bytes && len >= 1) {
    text = hex ? to_hex(bytes, static_cast<std::size_t>(len)) : to_base64(bytes, static_cast<std::size_t>(len));
  }
  log_message(LogLevel::Debug, "_log", "%-20s: %s", name, text.c_str());
}

}  // namespace vorel
