// Container and certificate exports.
#include "core/frame.h"

using namespace vorel;

extern "C" {

ULONG DEVAPI SKF_CreateContainer(HAPPLICATION hApplication, LPSTR szContainerName, HCONTAINER* phContainer) {
  ExportCall call("SKF_CreateContainer");
  VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) &&
                           call.string("szContainerName", szContainerName) && call.pointer("phContainer", phContainer));
  return call.not_implemented();
}

ULONG DEVAPI SKF_DeleteContainer(HAPPLICATION hApplication, LPSTR szContainerName) {
  ExportCall call("SKF_DeleteContainer");
  VOREL_VALIDATE(call,
                 call.pointer("hApplication", hApplication) && call.string("szContainerName", szContainerName));
  return call.not_implemented();
}

ULONG DEVAPI SKF_OpenContainer(HAPPLICATION hApplication, LPSTR szContainerName, HCONTAINER* phContainer) {
  ExportCall call("SKF_OpenContainer");
  VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) &&
                           call.string("szContainerName", szContainerName) && call.pointer("phContainer", phContainer));
  return call.not_implemented();
}

ULONG DEVAPI SKF_CloseContainer(HCONTAINER hContainer) {
  ExportCall call("SKF_CloseContainer");
  VOREL_VALIDATE(call, call.pointer("hContainer", hContainer));
  return call.not_implemented();
}

ULONG DEVAPI SKF_EnumContainer(HAPPLICATION hApplication, LPSTR, ULONG* pulSize) {
  ExportCall call("SKF_EnumContainer");
  VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.pointer("pulSize", pulSize));
  return call.not_implemented();
}

ULONG DEVAPI SKF_GetContainerType(HCONTAINER hContainer, ULONG* pulContainerType) {
  ExportCall call("SKF_GetContainerType");
  VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.pointer("pulContainerType", pulContainerType));
  return call.not_implemented();
}

ULONG DEVAPI SKF_ImportCertificate(HCONTAINER hContainer, BOOL, BYTE* pbCert, ULONG ulCertLen) {
  ExportCall call("SKF_ImportCertificate");
  VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.bytes("pbCert", pbCert, "ulCertLen", ulCertLen));
  return call.not_implemented();
}

ULONG DEVAPI SKF_ExportCertificate(HCONTAINER hContainer, BOOL, BYTE*, ULONG* pulCertLen) {
  ExportCall call("SKF_ExportCertificate");
  VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.pointer("pulCertLen", pulCertLen));
  return call.not_implemented();
}

}  // extern "C"
