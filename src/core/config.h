// The JSON device configuration: which device types exist and who serves them.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace vorel {

struct DeviceConfig {
  std::string name;
  int32_t type = 0;
  std::string dllpath;
  bool isskf = false;
  bool useMasterFile = true;
  std::vector<std::string> pidvids;
  // Device authentication of emulated devices, when configured (SM4 key).
  bool hasDevAuthKey = false;
  std::array<uint8_t, 16> devAuthKey{};
};

class VorelSKFConfig {
 public:
  // Both replace the entries on success and keep them unchanged on failure.
  bool LoadWithPath(const char* path);
  bool LoadWithContent(const char* content);
  // Loads the first of the paths that loads; false when none does.
  bool LoadFirst(const std::vector<std::string>& paths);
  // Forgets every entry and frees them, for the library's unload.
  void clear();

  const std::vector<DeviceConfig>& devices() const { return devices_; }
  // The entry of a device type, or nullptr.
  const DeviceConfig* find(int32_t type) const;

 private:
  bool load(const std::string& text, const char* func, const char* parseFailFormat);
  std::vector<DeviceConfig> devices_;
};

// The process-wide configuration; the first call loads it from the default locations.
VorelSKFConfig& GetVorelSKFConfig();

// Default locations, tried in order.
const std::vector<std::string>& default_config_paths();

}  // namespace vorel
