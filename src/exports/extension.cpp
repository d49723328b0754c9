// The library's own exports: private-key decryption chosen by keySpec, configuration loading.
#include "core/config.h"
#include "exports/frame.h"

using namespace vorel;

extern "C" {

// keySpec 2 selects the signing key pair; any other value the encryption key pair.
ULONG DEVAPI SKFEX_ECCDecrypt(HCONTAINER hContainer, int32_t keySpec, PECCCIPHERBLOB pCipherText, BYTE* pbData,
                              ULONG* pulDataLen) {
  return run_export("SKFEX_ECCDecrypt", [&](ExportCall&) -> ULONG {
    return SKF_ECCDecrypt(hContainer, keySpec == 2, pCipherText, pbData, pulDataLen);
  });
}

ULONG DEVAPI SKFEX_RSADecrypt(HCONTAINER hContainer, BYTE* pbInput, ULONG ulInputLen, BYTE* pbOutput,
                              ULONG* pulOutputLen, int32_t keySpec) {
  return run_export("SKFEX_RSADecrypt", [&](ExportCall&) -> ULONG {
    return SKF_RSADecrypt(hContainer, keySpec == 2, pbInput, ulInputLen, pbOutput, pulOutputLen);
  });
}

// A load runs with the gate closed: no call is in flight while the modules are freed and loaded
// again, and loads run one at a time. A failed load leaves the configuration and the
// vendor-module map as they were.
ULONG DEVAPI SKF_LoadConfigurationWithPath(LPSTR path) {
  return run_export("SKF_LoadConfigurationWithPath", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.string("path", path));
    GateReload reload;
    if (!GetVorelSKFConfig().LoadWithPath(path)) return call.fail(SAR_FAIL);
    init_skf_set(GetSkfSet());
    return SAR_OK;
  });
}

ULONG DEVAPI SKF_LoadConfigurationWithContent(LPSTR content) {
  return run_export("SKF_LoadConfigurationWithContent", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.string("content", content));
    GateReload reload;
    if (!GetVorelSKFConfig().LoadWithContent(content)) return call.fail(SAR_FAIL);
    init_skf_set(GetSkfSet());
    return SAR_OK;
  });
}

}  // extern "C"
