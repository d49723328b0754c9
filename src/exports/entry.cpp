// The module entry point: start on load, stop on unload.
#include "exports/lifecycle.h"

#ifdef _WIN32
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved) {
  switch (reason) {
    case DLL_PROCESS_ATTACH:
      vorel::library_attach();
      break;
    case DLL_PROCESS_DETACH:
      // At process exit the other threads are gone, perhaps holding our locks, and the system
      // takes everything back: only an unload frees.
      if (!reserved) vorel::library_detach();
      break;
    default:
      break;
  }
  return TRUE;
}
#else
__attribute__((constructor)) static void vorelskf_load() { vorel::library_attach(); }
__attribute__((destructor)) static void vorelskf_unload() { vorel::library_detach(); }
#endif
