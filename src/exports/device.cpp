// Device management exports.
#include "core/frame.h"

using namespace vorel;

extern "C" {

// No device-event service: both event exports refuse at once, on every route.
ULONG DEVAPI SKF_WaitForDevEvent(LPSTR, ULONG*, ULONG*) {
  ExportCall call("SKF_WaitForDevEvent");
  return call.not_emulated();
}

ULONG DEVAPI SKF_CancelWaitForDevEvent(void) {
  ExportCall call("SKF_CancelWaitForDevEvent");
  return call.not_emulated();
}

ULONG DEVAPI SKF_EnumDev(BOOL, LPSTR, ULONG* pulSize) {
  ExportCall call("SKF_EnumDev");
  VOREL_VALIDATE(call, call.pointer("pulSize", pulSize));
  return call.not_implemented();
}

ULONG DEVAPI SKF_ConnectDev(LPSTR szName, DEVHANDLE* phDev) {
  ExportCall call("SKF_ConnectDev");
  VOREL_VALIDATE(call, call.string("szName", szName) && call.pointer("phDev", phDev));
  return call.not_implemented();
}

ULONG DEVAPI SKF_DisConnectDev(DEVHANDLE hDev) {
  ExportCall call("SKF_DisConnectDev");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev));
  return call.not_implemented();
}

ULONG DEVAPI SKF_GetDevState(LPSTR szDevName, ULONG* pulDevState) {
  ExportCall call("SKF_GetDevState");
  VOREL_VALIDATE(call, call.string("szDevName", szDevName) && call.pointer("pulDevState", pulDevState));
  return call.not_implemented();
}

ULONG DEVAPI SKF_SetLabel(DEVHANDLE hDev, LPSTR szLabel) {
  ExportCall call("SKF_SetLabel");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.string("szLabel", szLabel));
  return call.not_implemented();
}

ULONG DEVAPI SKF_GetDevInfo(DEVHANDLE hDev, DEVINFO* pDevInfo) {
  ExportCall call("SKF_GetDevInfo");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.pointer("pDevInfo", pDevInfo));
  return call.not_implemented();
}

ULONG DEVAPI SKF_LockDev(DEVHANDLE hDev, ULONG) {
  ExportCall call("SKF_LockDev");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev));
  return call.not_implemented();
}

ULONG DEVAPI SKF_UnlockDev(DEVHANDLE hDev) {
  ExportCall call("SKF_UnlockDev");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev));
  return call.not_implemented();
}

ULONG DEVAPI SKF_Transmit(DEVHANDLE hDev, BYTE* pbCommand, ULONG ulCommandLen, BYTE* pbData, ULONG* pulDataLen) {
  ExportCall call("SKF_Transmit");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.bytes("pbCommand", pbCommand, "ulCommandLen", ulCommandLen) &&
                           call.pointer("pbData", pbData) && call.pointer("pulDataLen", pulDataLen));
  return call.not_implemented();
}

}  // extern "C"
