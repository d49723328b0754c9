#include "core/device/application.h"

#include <cstring>

#include "core/device/containers.h"

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

ULONG open_vendor_application(const ExportCall& call, const SkfDll& dll, const DeviceRecord& device, LPSTR name,
                              HAPPLICATION* out) {
  auto app = new_record<ApplicationRecord>(static_cast<uint32_t>(device.type));
  ULONG rc = call.vendor_call(dll, &SkfDll::SKF_OpenApplication, device.vendorDevice, name, &app->vendorApplication);
  if (rc != SAR_OK) return rc;
  HAPPLICATION vendorApplication = app->vendorApplication;
  return publish_record(app, out, [&dll, vendorApplication] {
    if (dll.SKF_CloseApplication) dll.SKF_CloseApplication(vendorApplication);
  });
}

}  // namespace vorel
