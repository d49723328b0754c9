// File exports.
#include "core/device/files.h"
#include "core/frame.h"

using namespace vorel;

extern "C" {

ULONG DEVAPI SKF_CreateFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulFileSize, ULONG ulReadRights,
                            ULONG ulWriteRights) {
  return run_export("SKF_CreateFile", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szFileName", szFileName) &&
                             call.length("ulFileSize", ulFileSize) && call.id("ulReadRights", ulReadRights) &&
                             call.id("ulWriteRights", ulWriteRights));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    return call.finish(create_file(call, *app, szFileName, ulFileSize, ulReadRights, ulWriteRights));
  });
}

ULONG DEVAPI SKF_DeleteFile(HAPPLICATION hApplication, LPSTR szFileName) {
  return run_export("SKF_DeleteFile", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szFileName", szFileName));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    return call.finish(delete_file(call, *app, szFileName));
  });
}

ULONG DEVAPI SKF_EnumFiles(HAPPLICATION hApplication, LPSTR szFileList, ULONG* pulSize) {
  return run_export("SKF_EnumFiles", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.pointer("pulSize", pulSize));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    return call.finish(enum_files(call, *app, szFileList, pulSize));
  });
}

ULONG DEVAPI SKF_GetFileInfo(HAPPLICATION hApplication, LPSTR szFileName, FILEATTRIBUTE* pFileInfo) {
  return run_export("SKF_GetFileInfo", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szFileName", szFileName) &&
                             call.pointer("pFileInfo", pFileInfo));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    return call.finish(file_info(call, *app, szFileName, pFileInfo));
  });
}

ULONG DEVAPI SKF_ReadFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulOffset, ULONG ulSize, BYTE* pbOutData,
                          ULONG* pulOutLen) {
  return run_export("SKF_ReadFile", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szFileName", szFileName) &&
                             call.length("ulSize", ulSize) && call.pointer("pbOutData", pbOutData) &&
                             call.pointer("pulOutLen", pulOutLen));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    return call.finish(read_file(call, *app, szFileName, ulOffset, ulSize, pbOutData, pulOutLen));
  });
}

ULONG DEVAPI SKF_WriteFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulOffset, BYTE* pbData, ULONG ulSize) {
  return run_export("SKF_WriteFile", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szFileName", szFileName) &&
                             call.bytes("pbData", pbData, "ulSize", ulSize));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    return call.finish(write_file(call, *app, szFileName, ulOffset, pbData, ulSize));
  });
}

}  // extern "C"
