#include "core/lifecycle.h"

#include "core/config.h"
#include "core/frame.h"
#include "core/log.h"
#include "core/skf_dll/skf_dll.h"

namespace vorel {

const char* const kLibraryVersion = "1.1.2.4";

namespace {
VOREL_DEVICE* g_pseudo_device = nullptr;
}

VOREL_DEVICE* pseudo_device() { return g_pseudo_device; }

void library_attach() {
  VLOG_INFO("DllMain", "Version : %s", kLibraryVersion);
  if (!g_pseudo_device) {
    int rc = VorelPKICryptoGetPseudoDevice(&g_pseudo_device);
    if (rc != VOREL_OK) VLOG_ERROR("DllMain", "VorelPKICryptoGetPseudoDevice fail, error : %d", rc);
  }
  init_skf_set(GetSkfSet());
}

// Everything the library made for the process goes, so that an application loading and
// unloading it again and again does not grow: handles left open, vendor modules, entries, keys,
// the crypto library's context and the log file, closed last.
void library_detach() {
  records_release();
  VorelPKICryptoFreeDevice(g_pseudo_device);
  g_pseudo_device = nullptr;
  free_skf_set(GetSkfSet());
  GetVorelSKFConfig().clear();
  VorelPKICryptoCleanup();
  log_close();
}

}  // namespace vorel
