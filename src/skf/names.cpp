#include "skf/names.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "core/buffers.h"
#include "core/log.h"

namespace vorel {

void add_all(NameList& names, int32_t type, const char* list, std::size_t len) {
  std::size_t at = 0;
  while (at < len && list[at] != '\0') {
    const char* name = list + at;
    std::size_t n = strnlen(name, len - at);
    if (!names.add(type, name, n)) return;
    at += n + 1;
  }
}

bool NameList::add(int32_t type, const char* own, std::size_t ownLen) {
  std::string name = std::to_string(type) + "#";
  name.append(own, ownLen);
  return add_name(name);
}

void NameList::append(const NameList& other) {
  for (std::size_t at = 0; at < other.text_.size(); at = other.text_.find('\0', at) + 1)
    if (!add_name(other.text_.c_str() + at)) return;
}

bool NameList::add_name(const std::string& name) {
  if (full_) return false;
  // Room for the name, its zero byte and the list's final zero byte.
  if (text_.size() + name.size() + 2 > capacity_) {
    full_ = true;
    VLOG_WARN(owner_, "name list of %u bytes is full: %s and the names after it are left out",
              static_cast<unsigned>(capacity_), name.c_str());
    return false;
  }
  text_ += name;
  text_ += '\0';
  return true;
}

bool is_valid_name(const char* name, int32_t* type, std::string* ownName) {
  // The leading number as atoi reads it; one beyond 32 bits is no device type.
  errno = 0;
  long value = std::strtol(name, nullptr, 10);
  *type = (errno == ERANGE || value > INT32_MAX || value < INT32_MIN) ? 0 : static_cast<int32_t>(value);
  if (*type <= 0) {
    VLOG_ERROR("is_valid_name", "error type");
    return false;
  }
  std::size_t digits = 0;
  while (name[digits] >= '0' && name[digits] <= '9') ++digits;
  if (name[digits] != '#') {
    VLOG_ERROR("is_valid_name", "device name format error");
    return false;
  }
  ownName->assign(name + digits + 1);
  return true;
}

ULONG GetDeviceNamesFromConfig(LPSTR szNameList, ULONG* pulSize) {
  NameList names("GetDeviceNamesFromConfig", kCombinedListSize);
  auto devices = GetVorelSKFConfig().devices();
  for (const DeviceConfig& d : *devices)
    if (!names.add(d.type, "?", 1)) break;
  // Deliberately lenient: a buffer one byte short of the reported size is accepted.
  ULONG rc = put_bytes(names.data(), names.length(), szNameList, pulSize, 1);
  if (rc != SAR_OK) VLOG_ERROR("GetDeviceNamesFromConfig", "%s return: 0x%08x", "GetDeviceNamesFromConfig", rc);
  return rc;
}

}  // namespace vorel
