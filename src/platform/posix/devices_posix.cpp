// Record pages and USB device listing on Linux.
#include <dirent.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <memory>
#include <string>

#include "platform/platform.h"

namespace vorel::platform {

std::size_t page_size() {
  static const std::size_t size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

void* reserve_pages(std::size_t size) {
  void* p = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return p == MAP_FAILED ? nullptr : p;
}

bool commit_pages(void* at, std::size_t size) { return mprotect(at, size, PROT_READ | PROT_WRITE) == 0; }

void decommit_pages(void* at, std::size_t size) {
  // A fresh inaccessible mapping over the same addresses: the memory goes back, the reservation stays.
  mmap(at, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0);
}

void release_pages(void* at, std::size_t size) { munmap(at, size); }

namespace {

// Four hexadecimal digits and an optional newline, as sysfs writes idVendor and idProduct.
bool read_id(const std::string& path, char out[5]) {
  FILE* f = std::fopen(path.c_str(), "r");
  if (!f) return false;
  char text[8] = {};
  std::size_t n = std::fread(text, 1, sizeof text - 1, f);
  std::fclose(f);
  if (n < 4 || (n > 4 && !(n == 5 && text[4] == '\n'))) return false;
  for (int i = 0; i < 4; ++i) {
    if (!std::isxdigit(static_cast<unsigned char>(text[i]))) return false;
    out[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[i])));
  }
  out[4] = '\0';
  return true;
}

}  // namespace

// The devices of the USB bus as sysfs lists them; VOREL_SKF_SYSFS names another sysfs root.
bool find_usb_device(const std::function<bool(const char* path, const char* segment)>& visit) {
  const char* root = env_get("VOREL_SKF_SYSFS");
  std::string dir = std::string(root && *root ? root : "/sys") + "/bus/usb/devices";
  std::unique_ptr<DIR, int (*)(DIR*)> d(opendir(dir.c_str()), closedir);
  if (!d) return false;
  bool found = false;
  while (!found) {
    struct dirent* e = readdir(d.get());
    if (!e) break;
    if (e->d_name[0] == '.') continue;
    std::string path = dir + "/" + e->d_name;
    char vid[5], pid[5];
    // Interfaces and other entries carry no identifiers of their own.
    if (read_id(path + "/idVendor", vid) && read_id(path + "/idProduct", pid)) {
      std::string segment = std::string("VID_") + vid + "&PID_" + pid;
      found = visit(path.c_str(), segment.c_str());
    } else {
      found = visit(path.c_str(), nullptr);
    }
  }
  return found;
}

}  // namespace vorel::platform
