#include "core/config.h"

#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "core/log.h"
#include "vorel/vorel_ptr.h"

namespace vorel {

namespace {

using json = nlohmann::json;

// Conversions follow the customary JSON-library rules: numbers and booleans convert
// into each other and into text; anything else cannot be converted and fails the load.
std::string as_string(const json& v) {
  switch (v.type()) {
    case json::value_t::null:
      return std::string();
    case json::value_t::string:
      return v.get<std::string>();
    case json::value_t::boolean:
      return v.get<bool>() ? "true" : "false";
    case json::value_t::number_integer:
      return std::to_string(v.get<int64_t>());
    case json::value_t::number_unsigned:
      return std::to_string(v.get<uint64_t>());
    case json::value_t::number_float: {
      std::ostringstream out;
      out << v.get<double>();
      return out.str();
    }
    default:
      throw std::runtime_error("Value is not convertible to string.");
  }
}

int32_t as_int(const json& v) {
  switch (v.type()) {
    case json::value_t::null:
      return 0;
    case json::value_t::boolean:
      return v.get<bool>() ? 1 : 0;
    case json::value_t::number_integer: {
      int64_t n = v.get<int64_t>();
      if (n < INT32_MIN || n > INT32_MAX) throw std::runtime_error("LargestInt out of Int range");
      return static_cast<int32_t>(n);
    }
    case json::value_t::number_unsigned: {
      uint64_t n = v.get<uint64_t>();
      if (n > static_cast<uint64_t>(INT32_MAX)) throw std::runtime_error("LargestUInt out of Int range");
      return static_cast<int32_t>(n);
    }
    case json::value_t::number_float: {
      double d = v.get<double>();
      if (!(d >= INT32_MIN && d <= INT32_MAX)) throw std::runtime_error("double out of Int range");
      return static_cast<int32_t>(d);
    }
    default:
      throw std::runtime_error("Value is not convertible to Int.");
  }
}

bool as_bool(const json& v) {
  switch (v.type()) {
    case json::value_t::null:
      return false;
    case json::value_t::boolean:
      return v.get<bool>();
    case json::value_t::number_integer:
      return v.get<int64_t>() != 0;
    case json::value_t::number_unsigned:
      return v.get<uint64_t>() != 0;
    case json::value_t::number_float:
      return v.get<double>() != 0.0;
    default:
      throw std::runtime_error("Value is not convertible to bool.");
  }
}

// Member lookup with a default: a missing member (or a null entry) gives the default.
const json* member(const json& object, const char* key) {
  if (object.is_null()) return nullptr;
  if (!object.is_object()) throw std::runtime_error("requires objectValue or nullValue");
  auto it = object.find(key);
  return it == object.end() ? nullptr : &*it;
}

// 32 hexadecimal digits: a key of 16 bytes.
void read_key(const std::string& text, std::array<uint8_t, 16>& key) {
  auto digit = [](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  if (text.size() != 2 * key.size()) throw std::runtime_error("devAuthKey must be 32 hexadecimal digits");
  for (std::size_t i = 0; i < key.size(); ++i) {
    int hi = digit(text[2 * i]), lo = digit(text[2 * i + 1]);
    if (hi < 0 || lo < 0) throw std::runtime_error("devAuthKey must be 32 hexadecimal digits");
    key[i] = static_cast<uint8_t>(hi << 4 | lo);
  }
}

DeviceConfig read_entry(const json& e) {
  DeviceConfig d;
  if (const json* v = member(e, "name")) d.name = as_string(*v);
  if (const json* v = member(e, "type")) d.type = as_int(*v);
  if (const json* v = member(e, "dllpath")) d.dllpath = as_string(*v);
  if (const json* v = member(e, "isskf")) d.isskf = as_bool(*v);
  if (const json* v = member(e, "useMasterFile")) d.useMasterFile = as_bool(*v);
  if (const json* v = member(e, "pidvids")) {
    if (v->is_array() || v->is_object()) {
      for (const json& id : *v) d.pidvids.push_back(as_string(id));
    }
  }
  if (const json* v = member(e, "decryptFamily")) d.decryptFamily = as_string(*v);
  if (const json* v = member(e, "devAuthKey")) {
    read_key(as_string(*v), d.devAuthKey);
    d.hasDevAuthKey = true;
  }
  return d;
}

}  // namespace

bool VorelSKFConfig::load(const std::string& text, const char* func, const char* parseFailFormat) {
  json root;
  try {
    root = json::parse(text);
  } catch (const json::exception& e) {
    VLOG_ERROR(func, parseFailFormat, e.what());
    return false;
  }
  std::vector<DeviceConfig> parsed;
  try {
    if (const json* devices = member(root, "devices")) {
      if (devices->is_array() || devices->is_object()) {
        for (const json& e : *devices) parsed.push_back(read_entry(e));
      }
    }
  } catch (const std::exception& e) {
    VLOG_ERROR(func, "Fail to read devices from config, because: %s", e.what());
    return false;
  }
  auto loaded = std::make_shared<const std::vector<DeviceConfig>>(std::move(parsed));
  std::lock_guard<std::mutex> guard(mutex_);
  devices_.swap(loaded);
  return true;
}

bool VorelSKFConfig::LoadWithPath(const char* path) {
  if (!path) return false;
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    VLOG_WARN("VorelSKFConfig::LoadWithPath", "file %s not found", path);
    return false;
  }
  std::ostringstream content;
  content << in.rdbuf();
  return load(content.str(), "VorelSKFConfig::LoadWithPath", "Fail to parse JSON from config file, because: %s");
}

bool VorelSKFConfig::LoadWithContent(const char* content) {
  if (!content) return false;
  return load(content, "VorelSKFConfig::LoadWithContent", "Fail to parse JSON from content, because: %s");
}

bool VorelSKFConfig::LoadFirst(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    if (LoadWithPath(path.c_str())) return true;
  }
  return false;
}

void VorelSKFConfig::clear() {
  std::lock_guard<std::mutex> guard(mutex_);
  devices_.reset();  // the configuration object itself outlives an unload
}

std::shared_ptr<const std::vector<DeviceConfig>> VorelSKFConfig::devices() const {
  static const std::vector<DeviceConfig> none;
  std::lock_guard<std::mutex> guard(mutex_);
  if (devices_) return devices_;
  return std::shared_ptr<const std::vector<DeviceConfig>>(std::shared_ptr<void>(), &none);  // owns nothing
}

std::shared_ptr<const DeviceConfig> VorelSKFConfig::find(int32_t type) const {
  std::shared_ptr<const std::vector<DeviceConfig>> all = devices();
  for (const DeviceConfig& d : *all) {
    if (d.type == type) return std::shared_ptr<const DeviceConfig>(all, &d);
  }
  return nullptr;
}

const std::vector<std::string>& default_config_paths() {
#ifdef _WIN32
  static const std::vector<std::string> paths{"vorelskf.json", "C:\\vorel_skf\\vorelskf.json"};
#else
  static const std::vector<std::string> paths{"vorelskf.json", "/etc/vorel_skf/vorelskf.json"};
#endif
  return paths;
}

VorelSKFConfig& GetVorelSKFConfig() {
  // Never destroyed: the library's unload may still consult it after static destruction.
  static VorelSKFConfig* config = &resident<VorelSKFConfig>();
  static std::once_flag once;
  std::call_once(once, [] { config->LoadFirst(default_config_paths()); });
  return *config;
}

}  // namespace vorel
