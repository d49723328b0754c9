#include "core/device/names.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "core/device/usb.h"
#include "core/frame.h"
#include "vorel/vorel_ptr.h"

namespace vorel {

namespace {

constexpr std::size_t kDeviceListSize = 1024;
constexpr std::size_t kCombinedListSize = 4096;

}  // namespace

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

void GetDeviceNameFromSKF(const DeviceConfig& device, NameList& names) {
  VLOG_DEBUG("GetDeviceNameFromSKF", "type : %d", device.type);
  std::shared_ptr<const SkfDll> dll = vendor_module(device.type);
  if (!dll) {
    VLOG_ERROR("GetDeviceNameFromSKF", "not found skf functions");
    return;
  }
  if (!FindUsbByPidvids(device.pidvids)) {
    VLOG_ERROR("GetDeviceNameFromSKF", "Not find usb key by pidvids");
    return;
  }
  if (!dll->SKF_EnumDev) {
    VLOG_ERROR("GetDeviceNameFromSKF", "SKF_EnumDev is not support");
    return;
  }
  char list[kDeviceListSize] = {};
  ULONG size = sizeof list;
  ULONG rc = dll->SKF_EnumDev(TRUE, list, &size);
  if (rc != SAR_OK) {
    VLOG_ERROR("GetDeviceNameFromSKF", "SKF_EnumDev fail, error : %d", static_cast<int>(rc));
    return;
  }
  // Whatever size the vendor claims, only its buffer is read.
  std::size_t len = size < sizeof list ? size : sizeof list;
  VLOG_DEBUG("GetDeviceNameFromSKF", "enum name list : %.*s", static_cast<int>(len), list);
  add_all(names, device.type, list, len);
  VLOG_DEBUG("GetDeviceNameFromSKF", "name list : %.*s", static_cast<int>(names.length()), names.data());
}

namespace {
// A token folder others may reach is said once per folder state, not on every listing.
void warn_about_store() {
  static std::mutex mutex;
  static std::string said;
  char* raw = nullptr;
  if (VorelPKICryptoGetStoreWarning(&raw) != VOREL_OK || !raw) return;
  UniquePtr<char> text(raw);
  std::lock_guard<std::mutex> guard(mutex);
  if (said == raw) return;
  said = raw;
  VLOG_WARN("GetDeviceNameFromVorelCrypto", "%s", raw);
}
}  // namespace

void GetDeviceNameFromVorelCrypto(int32_t type, NameList& names) {
  warn_about_store();
  UniquePtr<VOREL_DEVICE_LIST> list(VorelPKICryptoGetAllDevices(type, VOREL_ENUM_TOKENS | VOREL_ENUM_HARDWARE));
  if (!list) {
    VLOG_ERROR("GetDeviceNameFromVorelCrypto", "VorelPKICryptoGetAllDevices Failed. type = %d", type);
    return;
  }
  int count = VorelPKICryptoGetDeviceCount(list.get());
  for (int i = 0; i < count; ++i) {
    UniquePtr<VOREL_DEVICE> device(VorelPKICryptoGetDevice(list.get(), i));
    char* raw = nullptr;
    // A device whose serial number cannot be read is left out.
    if (!device || VorelPKICryptoGetSerialNumber(device.get(), &raw) != VOREL_OK) continue;
    UniquePtr<char> serial(raw);
    if (!names.add(type, serial.get(), std::strlen(serial.get()))) break;
  }
}

ULONG GetDeviceNamesFromKey(LPSTR szNameList, ULONG* pulSize) {
  NameList combined("GetDeviceNamesFromKey", kCombinedListSize);
  auto devices = GetVorelSKFConfig().devices();
  for (const DeviceConfig& d : *devices) {
    NameList one(d.isskf ? "GetDeviceNameFromSKF" : "GetDeviceNameFromVorelCrypto", kDeviceListSize);
    if (d.isskf)
      GetDeviceNameFromSKF(d, one);
    else
      GetDeviceNameFromVorelCrypto(d.type, one);
    combined.append(one);
  }
  ULONG rc = put_bytes(combined.data(), combined.length(), szNameList, pulSize);
  if (rc != SAR_OK) VLOG_ERROR("GetDeviceNamesFromKey", "%s return: 0x%08x", "GetDeviceNamesFromKey", rc);
  if (rc == SAR_OK && szNameList)
    VLOG_DEBUG("GetDeviceNamesFromKey", "nameList : %.*s", static_cast<int>(combined.length()), combined.data());
  return rc;
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
