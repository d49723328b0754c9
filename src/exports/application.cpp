// Application exports.
#include "core/frame.h"

using namespace vorel;

extern "C" {

ULONG DEVAPI SKF_CreateApplication(DEVHANDLE hDev, LPSTR szAppName, LPSTR szAdminPin, DWORD dwAdminPinRetryCount,
                                   LPSTR szUserPin, DWORD dwUserPinRetryCount, DWORD dwCreateFileRights,
                                   HAPPLICATION* phApplication) {
  return run_export("SKF_CreateApplication", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(
        call, call.pointer("hDev", hDev) && call.string("szAppName", szAppName) &&
                  call.string("szAdminPin", szAdminPin) && call.length("dwAdminPinRetryCount", dwAdminPinRetryCount) &&
                  call.string("szUserPin", szUserPin) && call.length("dwUserPinRetryCount", dwUserPinRetryCount) &&
                  call.length("dwCreateFileRights", dwCreateFileRights) &&
                  call.pointer("phApplication", phApplication));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_EnumApplication(DEVHANDLE hDev, LPSTR, ULONG* pulSize) {
  return run_export("SKF_EnumApplication", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.pointer("pulSize", pulSize));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_DeleteApplication(DEVHANDLE hDev, LPSTR szAppName) {
  return run_export("SKF_DeleteApplication", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.string("szAppName", szAppName));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_OpenApplication(DEVHANDLE hDev, LPSTR szAppName, HAPPLICATION* phApplication) {
  return run_export("SKF_OpenApplication", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.string("szAppName", szAppName) &&
                             call.pointer("phApplication", phApplication));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_CloseApplication(HAPPLICATION hApplication) {
  return run_export("SKF_CloseApplication", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication));
    return call.not_implemented();
  });
}

}  // extern "C"
