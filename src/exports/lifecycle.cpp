#include "exports/lifecycle.h"

#include "core/config.h"
#include "core/log.h"
#include "core/records.h"
#include "token/common.h"
#include "vendor/skf_dll.h"

namespace vorel {

const char* const kLibraryVersion = "1.1.2.4";

void library_attach() {
  VLOG_INFO("DllMain", "Version : %s", kLibraryVersion);
  pseudo_device_open();
  init_skf_set(GetSkfSet());
}

// Everything the library made for the process goes, so that an application loading and
// unloading it again and again does not grow: handles left open, vendor modules, entries, keys,
// the crypto library's context and the log file, closed last.
void library_detach() {
  records_release();
  pseudo_device_close();
  free_skf_set(GetSkfSet());
  GetVorelSKFConfig().clear();
  VorelPKICryptoCleanup();
  log_close();
}

}  // namespace vorel
