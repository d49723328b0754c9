// The argument validators. Each dumps the value at DEBUG and, when it is not acceptable,
// writes an ERROR line naming the parameter and the place of the check.
#pragma once

#include <cstdint>

namespace vorel {

bool _is_valid_pointer(const char* file, const int& line, const char* name, const void* value);
bool _is_valid_length(const char* file, const int& line, const char* name, uint32_t value);
bool _is_valid_id(const char* file, const int& line, const char* name, uint32_t value);
bool _is_valid_string(const char* file, const int& line, const char* name, const char* value);
// A PIN: checked as a string, but its value never reaches the log, whatever the level.
bool _is_valid_secret(const char* file, const int& line, const char* name, const char* value);
bool _is_valid_bytes(const char* file, const int& line, const char* bytesName, const void* bytes,
                     const char* lengthName, uint32_t length);

}  // namespace vorel
