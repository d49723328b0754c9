#include "core/records.h"

#include <mutex>
#include <unordered_map>

namespace vorel {

namespace {

struct Registry {
  std::mutex mutex;
  std::unordered_map<const void*, RecordKind> live;
};

Registry& registry() {
  // Never destroyed: records may be released during process teardown.
  static Registry* r = new Registry();
  return *r;
}

}  // namespace

void registry_add(const void* record, RecordKind kind) {
  Registry& r = registry();
  std::lock_guard<std::mutex> guard(r.mutex);
  r.live[record] = kind;
}

void registry_remove(const void* record) {
  Registry& r = registry();
  std::lock_guard<std::mutex> guard(r.mutex);
  r.live.erase(record);
}

bool registry_contains(const void* record, RecordKind kind) {
  if (!record) return false;
  Registry& r = registry();
  std::lock_guard<std::mutex> guard(r.mutex);
  auto it = r.live.find(record);
  return it != r.live.end() && it->second == kind;
}

DeviceRecord* find_device(DEVHANDLE handle) {
  return registry_contains(handle, RecordKind::Device) ? static_cast<DeviceRecord*>(handle) : nullptr;
}

HandleRecord* find_handle(HANDLE handle) {
  return registry_contains(handle, RecordKind::Handle) ? static_cast<HandleRecord*>(handle) : nullptr;
}

DeviceRecord* device_record_new(int32_t type) {
  auto* device = static_cast<DeviceRecord*>(vorel_malloc(sizeof(DeviceRecord)));
  if (!device) return nullptr;
  device->lock = platform::lock_new();
  if (!device->lock) {
    vorel_free(device);
    return nullptr;
  }
  device->type = type;
  registry_add(device, RecordKind::Device);
  return device;
}

void device_record_free(DeviceRecord* device) {
  if (!device) return;
  registry_remove(device);
  platform::lock_free(device->lock);
  device->lock = nullptr;
  VorelPKICryptoFreeDevice(device->cryptoDevice);
  device->cryptoDevice = nullptr;
  vorel_free(device);
}

HandleRecord* handle_record_new(int32_t type, uint32_t kind) {
  auto* handle = static_cast<HandleRecord*>(vorel_malloc(sizeof(HandleRecord)));
  if (!handle) return nullptr;
  handle->type = type;
  handle->kind = kind;
  registry_add(handle, RecordKind::Handle);
  return handle;
}

void handle_record_free(HandleRecord* handle) {
  if (!handle) return;
  registry_remove(handle);
  // Each pointer is cleared before its object is freed, so nothing is freed twice.
  switch (handle->kind) {
    case kSessionKey: {
      auto* key = static_cast<SymmKeyRecord*>(handle->payload);
      handle->payload = nullptr;
      if (key) {
        VOREL_CIPHER* cipher = key->cipher;
        key->cipher = nullptr;
        VorelPKICryptoFreeCipher(cipher);
        vorel_free(key);
      }
      break;
    }
    case kHash: {
      auto* hash = static_cast<VOREL_HASH*>(handle->payload);
      handle->payload = nullptr;
      VorelPKICryptoFreeHash(hash);
      break;
    }
    case kMac: {
      auto* mac = static_cast<MacRecord*>(handle->payload);
      handle->payload = nullptr;
      if (mac) {
        VOREL_CIPHER* cipher = mac->cipher;
        mac->cipher = nullptr;
        VorelPKICryptoFreeCipher(cipher);
        vorel_free(mac);
      }
      break;
    }
    default: break;
  }
  vorel_free(handle);
}

}  // namespace vorel
