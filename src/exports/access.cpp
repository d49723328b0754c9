// Device authentication and PIN exports.
#include "core/frame.h"

using namespace vorel;

extern "C" {

ULONG DEVAPI SKF_ChangeDevAuthKey(DEVHANDLE hDev, BYTE* pbKeyValue, ULONG ulKeyLen) {
  ExportCall call("SKF_ChangeDevAuthKey");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.bytes("pbKeyValue", pbKeyValue, "ulKeyLen", ulKeyLen));
  return call.not_implemented();
}

ULONG DEVAPI SKF_DevAuth(DEVHANDLE hDev, BYTE* pbAuthData, ULONG ulLen) {
  ExportCall call("SKF_DevAuth");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.bytes("pbAuthData", pbAuthData, "ulLen", ulLen));
  return call.not_implemented();
}

ULONG DEVAPI SKF_ChangePIN(HAPPLICATION hApplication, ULONG, LPSTR szOldPin, LPSTR szNewPin, ULONG* pulRetryCount) {
  ExportCall call("SKF_ChangePIN");
  VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szOldPin", szOldPin) &&
                           call.string("szNewPin", szNewPin) && call.pointer("pulRetryCount", pulRetryCount));
  return call.not_implemented();
}

ULONG DEVAPI SKF_GetPINInfo(HAPPLICATION hApplication, ULONG, ULONG* pulMaxRetryCount, ULONG* pulRemainRetryCount,
                            BOOL* pbDefaultPin) {
  ExportCall call("SKF_GetPINInfo");
  VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.pointer("pulMaxRetryCount", pulMaxRetryCount) &&
                           call.pointer("pulRemainRetryCount", pulRemainRetryCount) &&
                           call.pointer("pbDefaultPin", pbDefaultPin));
  return call.not_implemented();
}

ULONG DEVAPI SKF_VerifyPIN(HAPPLICATION hApplication, ULONG, LPSTR szPIN, ULONG* pulRetryCount) {
  ExportCall call("SKF_VerifyPIN");
  VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szPIN", szPIN) &&
                           call.pointer("pulRetryCount", pulRetryCount));
  return call.not_implemented();
}

ULONG DEVAPI SKF_UnblockPIN(HAPPLICATION hApplication, LPSTR szAdminPIN, LPSTR szNewUserPIN, ULONG* pulRetryCount) {
  ExportCall call("SKF_UnblockPIN");
  VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szAdminPIN", szAdminPIN) &&
                           call.string("szNewUserPIN", szNewUserPIN) && call.pointer("pulRetryCount", pulRetryCount));
  return call.not_implemented();
}

ULONG DEVAPI SKF_ClearSecureState(HAPPLICATION hApplication) {
  ExportCall call("SKF_ClearSecureState");
  VOREL_VALIDATE(call, call.pointer("hApplication", hApplication));
  return call.not_implemented();
}

ULONG DEVAPI SKF_GetSecureState(HAPPLICATION hApplication, ULONG* pulState) {
  ExportCall call("SKF_GetSecureState");
  VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.pointer("pulState", pulState));
  return call.not_implemented();
}

}  // extern "C"
