#include "vendor/device.h"

#include <cstring>

#include "vendor/usb.h"

namespace vorel {

ULONG connect_vendor(const VendorCall& v, int32_t type, std::string own, DEVHANDLE* out) {
  std::shared_ptr<DeviceRecord> record = new_device_record(type);
  if (!record) return SAR_FAIL;
  if (own == "?") {
    char list[kDeviceListSize] = {};
    ULONG size = sizeof list;
    ULONG rc = v.named("SKF_EnumDev", &SkfDll::SKF_EnumDev, TRUE, list, &size);
    if (rc != SAR_OK) return rc;
    list[sizeof list - 1] = '\0';
    if (size == 0 || list[0] == '\0') return SAR_DEVICE_REMOVED;
    own = list;
  }
  auto info = [&v](DeviceRecord& r) {
    return v.named("SKF_GetDevInfo", &SkfDll::SKF_GetDevInfo, r.vendorDevice, &r.devInfo);
  };
  return open_wrapped(v, &SkfDll::SKF_ConnectDev, &SkfDll::SKF_DisConnectDev, record, out, info, &own[0]);
}

void GetDeviceNameFromSKF(const DeviceConfig& device, const SkfDll* dll, NameList& names) {
  VLOG_DEBUG("GetDeviceNameFromSKF", "type : %d", device.type);
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

}  // namespace vorel
