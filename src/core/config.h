// The JSON device configuration: which device types exist and who serves them.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
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
  // The vendor family whose private-key decryption the type uses; empty: the one of its number.
  std::string decryptFamily;
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

  // The entries as loaded last. A load replaces them whole while other threads may still be
  // reading the ones they took, so a caller keeps what it was given for as long as it reads it.
  std::shared_ptr<const std::vector<DeviceConfig>> devices() const;
  // The entry of a device type, or null; it keeps its load's entries alive.
  std::shared_ptr<const DeviceConfig> find(int32_t type) const;

 private:
  bool load(const std::string& text, const char* func, const char* parseFailFormat);
  mutable std::mutex mutex_;
  std::shared_ptr<const std::vector<DeviceConfig>> devices_;  // none loaded: null
};

// The process-wide configuration; the first call loads it from the default locations.
VorelSKFConfig& GetVorelSKFConfig();

// Default locations, tried in order.
const std::vector<std::string>& default_config_paths();

}  // namespace vorel
