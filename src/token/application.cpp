#include "token/application.h"

#include <cstring>

#include "token/containers.h"

namespace vorel {

namespace {
const char kApplicationName[] = "VOREL";
}

ULONG enum_applications(LPSTR list, ULONG* size) {
  ULONG rc = put_bytes(kApplicationName, sizeof kApplicationName, list, size);
  if (rc == SAR_OK && list) VLOG_DEBUG("SKF_EnumApplication", "application list : %.*s", static_cast<int>(*size), list);
  return rc;
}

ULONG open_application(const DeviceRecord& device, const char* name, HAPPLICATION* out) {
  if (std::strcmp(name, kApplicationName) != 0) return SAR_APPLICATION_NAME_INVALID;
  auto app = new_record<ApplicationRecord>(static_cast<uint32_t>(device.type));
  VOREL_DEVICE* dup = nullptr;
  VorelPKICryptoDupDevice(device.cryptoDevice.get(), &dup);
  app->cryptoDevice.reset(dup);
  int count = VorelPKICryptoGetKeypairCount(dup);
  for (int i = 0; i < count; ++i) {
    UniquePtr<VOREL_KEYPAIR> keypair(VorelPKICryptoGetKeypair(dup, i));
    if (keypair && addKeypairToContainer(*app, keypair.get())) keypair.release();
  }
  SortContainers(*app);
  return publish_record(app, out);
}

}  // namespace vorel
