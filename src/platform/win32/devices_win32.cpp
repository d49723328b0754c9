// Record pages and USB device listing on Windows.
#include <windows.h>
// windows.h first: SetupAPI builds on its types.
#include <setupapi.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/platform.h"

namespace vorel::platform {

std::size_t page_size() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info.dwPageSize;
}

void* reserve_pages(std::size_t size) { return VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS); }

bool commit_pages(void* at, std::size_t size) { return VirtualAlloc(at, size, MEM_COMMIT, PAGE_READWRITE) != nullptr; }

void decommit_pages(void* at, std::size_t size) { VirtualFree(at, size, MEM_DECOMMIT); }

void release_pages(void* at, std::size_t) { VirtualFree(at, 0, MEM_RELEASE); }

namespace {

// GUID_DEVINTERFACE_USB_DEVICE
const GUID kUsbDeviceInterface = {0xA5DCBF10, 0x6530, 0x11D2, {0x90, 0x1F, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xED}};
constexpr DWORD kDetailSize = 2048;
constexpr char kUsbPrefix[] = "\\\\?\\USB#";  // 8 characters
static_assert(sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A) == 8, "fixed part of the ANSI detail record");

}  // namespace

// Interface paths read "\\?\USB#VID_096E&PID_0702#<serial>#{<class>}": the segment after the
// prefix, up to the next '#', identifies the device.
bool find_usb_device(const std::function<bool(const char* path, const char* segment)>& visit) {
  HDEVINFO set = SetupDiGetClassDevsW(&kUsbDeviceInterface, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  if (!set) return false;
  std::unique_ptr<void, BOOL(WINAPI*)(HDEVINFO)> setOwner(set, SetupDiDestroyDeviceInfoList);
  std::unique_ptr<void, void (*)(void*)> block(std::malloc(kDetailSize), std::free);
  if (!block) return false;
  auto* detail = static_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(block.get());
  bool found = false;
  for (DWORD index = 0; !found; ++index) {
    SP_DEVICE_INTERFACE_DATA iface;
    iface.cbSize = sizeof iface;
    if (!SetupDiEnumDeviceInterfaces(set, nullptr, &kUsbDeviceInterface, index, &iface)) break;
    detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
    SP_DEVINFO_DATA device;
    device.cbSize = sizeof device;
    if (!SetupDiGetDeviceInterfaceDetailA(set, &iface, detail, kDetailSize, nullptr, &device)) continue;
    static_cast<char*>(block.get())[kDetailSize - 1] = '\0';
    char path[kDetailSize];
    std::strncpy(path, detail->DevicePath, sizeof path - 1);
    path[sizeof path - 1] = '\0';
    const char* segment = nullptr;
    if (_strnicmp(path, kUsbPrefix, 8) == 0) {
      if (char* cut = std::strchr(path + 8, '#')) *cut = '\0';
      segment = path + 8;
    }
    found = visit(detail->DevicePath, segment);
  }
  return found;
}

}  // namespace vorel::platform
