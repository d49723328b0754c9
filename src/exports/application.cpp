// Application exports.
#include "core/frame.h"

using namespace vorel;

extern "C" {

ULONG DEVAPI SKF_CreateApplication(DEVHANDLE hDev, LPSTR szAppName, LPSTR szAdminPin, DWORD dwAdminPinRetryCount,
                                   LPSTR szUserPin, DWORD dwUserPinRetryCount, DWORD dwCreateFileRights,
                                   HAPPLICATION* phApplication) {
  ExportCall call("SKF_CreateApplication");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.string("szAppName", szAppName) &&
                           call.string("szAdminPin", szAdminPin) &&
                           call.length("dwAdminPinRetryCount", dwAdminPinRetryCount) &&
                           call.string("szUserPin", szUserPin) &&
                           call.length("dwUserPinRetryCount", dwUserPinRetryCount) &&
                           call.length("dwCreateFileRights", dwCreateFileRights) &&
                           call.pointer("phApplication", phApplication));
  return call.not_implemented();
}

ULONG DEVAPI SKF_EnumApplication(DEVHANDLE hDev, LPSTR, ULONG* pulSize) {
  ExportCall call("SKF_EnumApplication");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.pointer("pulSize", pulSize));
  return call.not_implemented();
}

ULONG DEVAPI SKF_DeleteApplication(DEVHANDLE hDev, LPSTR szAppName) {
  ExportCall call("SKF_DeleteApplication");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.string("szAppName", szAppName));
  return call.not_implemented();
}

ULONG DEVAPI SKF_OpenApplication(DEVHANDLE hDev, LPSTR szAppName, HAPPLICATION* phApplication) {
  ExportCall call("SKF_OpenApplication");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.string("szAppName", szAppName) &&
                           call.pointer("phApplication", phApplication));
  return call.not_implemented();
}

ULONG DEVAPI SKF_CloseApplication(HAPPLICATION hApplication) {
  ExportCall call("SKF_CloseApplication");
  VOREL_VALIDATE(call, call.pointer("hApplication", hApplication));
  return call.not_implemented();
}

}  // extern "C"
