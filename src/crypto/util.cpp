#include <cstdlib>
#include <cstring>

#include "platform/platform.h"
#include "vorel/vorel_util.h"

struct vorel_ustring_st {
  std::size_t len;
  char text[1];  // len bytes and a terminating zero
};

struct vorel_dso_st {
  void* module;
};

extern "C" {

void* vorel_malloc(std::size_t size) {
  if (size == 0) return nullptr;
  return std::calloc(1, size);
}

void vorel_free(void* ptr) { std::free(ptr); }

vorel_ustring* vorel_ustring_newascii(const char* text, std::size_t len) {
  if (!text) return nullptr;
  auto* str = static_cast<vorel_ustring*>(vorel_malloc(sizeof(vorel_ustring) + len));
  if (!str) return nullptr;
  str->len = len;
  std::memcpy(str->text, text, len);
  str->text[len] = '\0';
  return str;
}

const char* vorel_ustring_text(const vorel_ustring* str) { return str ? str->text : nullptr; }

void vorel_ustring_free(vorel_ustring* str) { vorel_free(str); }

vorel_dso* vorel_dso_load(const vorel_ustring* path) {
  if (!path) return nullptr;
  void* module = vorel::platform::dso_open(path->text);
  if (!module) return nullptr;
  auto* dso = static_cast<vorel_dso*>(vorel_malloc(sizeof(vorel_dso)));
  if (!dso) {
    vorel::platform::dso_close(module);
    return nullptr;
  }
  dso->module = module;
  return dso;
}

vorel_fnptr vorel_dso_getfunction(vorel_dso* dso, const char* name) {
  if (!dso) return nullptr;
  return vorel::platform::dso_symbol(dso->module, name);
}

void vorel_dso_free(vorel_dso* dso) {
  if (!dso) return;
  vorel::platform::dso_close(dso->module);
  vorel_free(dso);
}

}  // extern "C"
