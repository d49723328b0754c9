#include "core/validate.h"

#include "core/log.h"

namespace vorel {

bool _is_valid_pointer(const char* file, const int& line, const char* name, const void* value) {
  VLOG_DEBUG("_is_valid_pointer", "%-20s: %p", name, value);
  if (value) return true;
  VLOG_ERROR("_is_valid_pointer", "%s is an invalid pointer, at `%s:%d`", name, file, line);
  return false;
}

bool _is_valid_length(const char* file, const int& line, const char* name, uint32_t value) {
  VLOG_DEBUG("_is_valid_length", "%-20s: %d", name, static_cast<int>(value));
  if (value != 0) return true;
  VLOG_ERROR("_is_valid_length", "%s is an invalid length value, at `%s:%d`", name, file, line);
  return false;
}

bool _is_valid_id(const char* file, const int& line, const char* name, uint32_t value) {
  VLOG_DEBUG("_is_valid_id", "%-20s: %d | 0x%08x", name, static_cast<int>(value), value);
  if (value != 0 && value != 0xFFFFFFFFu) return true;
  VLOG_ERROR("_is_valid_id", "%s is an invalid id, at `%s:%d`", name, file, line);
  return false;
}

bool _is_valid_string(const char* file, const int& line, const char* name, const char* value) {
  VLOG_DEBUG("_is_valid_string", "%-20s: %s", name, value ? value : "(null)");
  if (value) return true;
  VLOG_ERROR("_is_valid_string", "%s is an invalid value, at `%s:%d`", name, file, line);
  return false;
}

// Logged as the string check is, but for the value.
bool _is_valid_secret(const char* file, const int& line, const char* name, const char* value) {
  VLOG_DEBUG("_is_valid_string", "%-20s: %s", name, value ? "(not logged)" : "(null)");
  if (value) return true;
  VLOG_ERROR("_is_valid_string", "%s is an invalid value, at `%s:%d`", name, file, line);
  return false;
}

bool _is_valid_bytes(const char* file, const int& line, const char* bytesName, const void* bytes,
                     const char* lengthName, uint32_t length) {
  if (log_enabled(LogLevel::Debug)) {
    std::string hex = bytes ? to_hex(bytes, length) : std::string();
    log_message(LogLevel::Debug, "_is_valid_bytes", "%-20s: %s", bytesName, hex.c_str());
    log_message(LogLevel::Debug, "_is_valid_bytes", "%-20s: %d", lengthName, static_cast<int>(length));
  }
  if (!bytes) {
    VLOG_ERROR("_is_valid_bytes", "%s is an invalid pointer, at `%s:%d`", bytesName, file, line);
    return false;
  }
  if (length == 0) {
    VLOG_ERROR("_is_valid_bytes", "%s is an invalid length value, at `%s:%d`", lengthName, file, line);
    return false;
  }
  return true;
}

}  // namespace vorel
