// File exports.
#include "core/frame.h"

using namespace vorel;

extern "C" {

ULONG DEVAPI SKF_CreateFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulFileSize, ULONG ulReadRights,
                            ULONG ulWriteRights) {
  return run_export("SKF_CreateFile", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szFileName", szFileName) &&
                             call.length("ulFileSize", ulFileSize) && call.id("ulReadRights", ulReadRights) &&
                             call.id("ulWriteRights", ulWriteRights));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_DeleteFile(HAPPLICATION hApplication, LPSTR szFileName) {
  return run_export("SKF_DeleteFile", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szFileName", szFileName));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_EnumFiles(HAPPLICATION hApplication, LPSTR, ULONG* pulSize) {
  return run_export("SKF_EnumFiles", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.pointer("pulSize", pulSize));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_GetFileInfo(HAPPLICATION hApplication, LPSTR szFileName, FILEATTRIBUTE* pFileInfo) {
  return run_export("SKF_GetFileInfo", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szFileName", szFileName) &&
                             call.pointer("pFileInfo", pFileInfo));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_ReadFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG, ULONG ulSize, BYTE* pbOutData,
                          ULONG* pulOutLen) {
  return run_export("SKF_ReadFile", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szFileName", szFileName) &&
                             call.length("ulSize", ulSize) && call.pointer("pbOutData", pbOutData) &&
                             call.pointer("pulOutLen", pulOutLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_WriteFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG, BYTE* pbData, ULONG ulSize) {
  return run_export("SKF_WriteFile", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szFileName", szFileName) &&
                             call.bytes("pbData", pbData, "ulSize", ulSize));
    return call.not_implemented();
  });
}

}  // extern "C"
