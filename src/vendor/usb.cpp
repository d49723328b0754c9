#include "vendor/usb.h"

#include <cctype>

#include "core/log.h"
#include "platform/platform.h"

namespace vorel {

namespace {

bool starts_with_nocase(const char* text, const std::string& prefix) {
  for (char p : prefix) {
    if (*text == '\0' || std::toupper(static_cast<unsigned char>(*text)) != std::toupper(static_cast<unsigned char>(p)))
      return false;
    ++text;
  }
  return true;
}

}  // namespace

bool FindUsbByPidvids(const std::vector<std::string>& pidvids) {
  const std::string* hit = nullptr;
  platform::find_usb_device([&](const char* path, const char* segment) {
    VLOG_DEBUG("FindUsbByPidvids", "pivvid : %s", path);
    if (!segment) return false;
    for (const std::string& entry : pidvids) {
      if (starts_with_nocase(segment, entry)) {
        hit = &entry;
        return true;
      }
    }
    return false;
  });
  if (hit) VLOG_DEBUG("FindUsbByPidvids", "find usb key, pidvid : %s", hit->c_str());
  return hit != nullptr;
}

}  // namespace vorel
