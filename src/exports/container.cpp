// Container and certificate exports.
#include "core/frame.h"

using namespace vorel;

extern "C" {

ULONG DEVAPI SKF_CreateContainer(HAPPLICATION hApplication, LPSTR szContainerName, HCONTAINER* phContainer) {
  return run_export("SKF_CreateContainer", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) &&
                             call.string("szContainerName", szContainerName) &&
                             call.pointer("phContainer", phContainer));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_DeleteContainer(HAPPLICATION hApplication, LPSTR szContainerName) {
  return run_export("SKF_DeleteContainer", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szContainerName", szContainerName));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_OpenContainer(HAPPLICATION hApplication, LPSTR szContainerName, HCONTAINER* phContainer) {
  return run_export("SKF_OpenContainer", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) &&
                             call.string("szContainerName", szContainerName) &&
                             call.pointer("phContainer", phContainer));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_CloseContainer(HCONTAINER hContainer) {
  return run_export("SKF_CloseContainer", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_EnumContainer(HAPPLICATION hApplication, LPSTR, ULONG* pulSize) {
  return run_export("SKF_EnumContainer", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.pointer("pulSize", pulSize));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_GetContainerType(HCONTAINER hContainer, ULONG* pulContainerType) {
  return run_export("SKF_GetContainerType", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.pointer("pulContainerType", pulContainerType));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_ImportCertificate(HCONTAINER hContainer, BOOL, BYTE* pbCert, ULONG ulCertLen) {
  return run_export("SKF_ImportCertificate", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call,
                   call.pointer("hContainer", hContainer) && call.bytes("pbCert", pbCert, "ulCertLen", ulCertLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_ExportCertificate(HCONTAINER hContainer, BOOL, BYTE*, ULONG* pulCertLen) {
  return run_export("SKF_ExportCertificate", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.pointer("pulCertLen", pulCertLen));
    return call.not_implemented();
  });
}

}  // extern "C"
