// Device names "<type>#<own name>" and the name lists of SKF_EnumDev.
#pragma once

#include <cstdint>
#include <string>

#include "core/config.h"
#include "skf.h"

namespace vorel {

// A name list built in a buffer of fixed capacity: names, each with its zero byte, then one
// more zero byte. A name that does not fit is left out with a warning, and so is every later
// one, so the list always ends on a whole name.
class NameList {
 public:
  NameList(const char* owner, std::size_t capacity) : owner_(owner), capacity_(capacity) {}
  // Appends "<type>#<own>"; false when the list is full.
  bool add(int32_t type, const char* own, std::size_t ownLen);
  // Appends the names of another list, as far as they fit.
  void append(const NameList& other);
  bool empty() const { return text_.empty(); }
  // The list with its final zero byte; length 0 when it holds no name.
  const char* data() const { return text_.c_str(); }
  std::size_t length() const { return text_.empty() ? 0 : text_.size() + 1; }

 private:
  bool add_name(const std::string& name);
  const char* owner_;
  std::size_t capacity_;
  bool full_ = false;
  std::string text_;  // names with their zero bytes; std::string adds the final one
};

// Appends every name of a multi-string of len bytes (a vendor's SKF_EnumDev list) as a name of
// the type, until an empty name or the end; a last name without its zero byte ends at len.
void add_all(NameList& names, int32_t type, const char* list, std::size_t len);

// Splits a device name into its type (stored whatever the outcome) and own name. False, with
// "error type" or "device name format error" logged, when the name has another form.
bool is_valid_name(const char* name, int32_t* type, std::string* ownName);

// Working limits of the lists: one type's names, and the whole list.
constexpr std::size_t kDeviceListSize = 1024;
constexpr std::size_t kCombinedListSize = 4096;

// SKF_EnumDev's list of configured types, "<type>#?" each, with the size contract of output
// buffers. It accepts a buffer one byte shorter than its size; it then lacks the final zero byte.
ULONG GetDeviceNamesFromConfig(LPSTR szNameList, ULONG* pulSize);

}  // namespace vorel
