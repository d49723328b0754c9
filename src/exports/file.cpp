// File exports. The route of an application's files is chosen here: forwarded to a vendor that
// keeps file names itself, or through the master file kept on the vendor's token or ours.
#include "core/config.h"
#include "exports/frame.h"
#include "skf/files.h"
#include "token/file_store.h"
#include "vendor/file_store.h"

using namespace vorel;

namespace {

struct FileRoute {
  std::shared_ptr<const SkfDll> dll;  // outlives the store
  std::unique_ptr<FileStore> store;   // null: forwarded as it is
  ULONG rc = SAR_OK;                  // not reachable at all
};

FileRoute file_route(const ExportCall& call, const ApplicationRecord& app) {
  FileRoute route;
  int32_t type = static_cast<int32_t>(app.type);
  route.dll = vendor_module(type);
  auto config = GetVorelSKFConfig().find(type);
  if (!config || !config->useMasterFile) {
    if (!route.dll) {
      VLOG_ERROR(call.name(), "Not use master file and not support skf, hhis function cannot be implemented");
      route.rc = SAR_NOT_EMULATED;
    }
    return route;
  }
  route.store = route.dll ? vendor_file_store(call.vendor(*route.dll), app.vendorApplication)
                          : crypto_file_store(call.ctx(), app.cryptoDevice.get(), &route.rc);
  return route;
}

// A file operation on the application's route: forward() on a vendor keeping names itself,
// kept() over the master file.
template <class Forward, class Kept>
ULONG on_files(const ExportCall& call, const ApplicationRecord& app, Forward forward, Kept kept) {
  FileRoute route = file_route(call, app);
  if (route.rc != SAR_OK) return call.fail(route.rc);
  if (!route.store) return call.finish(forward(call.vendor(*route.dll)));
  return call.finish(kept(*route.store));
}

}  // namespace

extern "C" {

ULONG DEVAPI SKF_CreateFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulFileSize, ULONG ulReadRights,
                            ULONG ulWriteRights) {
  return run_export("SKF_CreateFile", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szFileName", szFileName) &&
                             call.length("ulFileSize", ulFileSize) && call.id("ulReadRights", ulReadRights) &&
                             call.id("ulWriteRights", ulWriteRights));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    if (ULONG rc = check_new_file(call.ctx(), szFileName, ulFileSize, ulReadRights, ulWriteRights))
      return call.fail(rc);
    return on_files(
        call, *app,
        [&](const VendorCall& v) {
          return v(&SkfDll::SKF_CreateFile, app->vendorApplication, szFileName, ulFileSize, ulReadRights,
                   ulWriteRights);
        },
        [&](FileStore& store) {
          return create_file(call.ctx(), store, szFileName, ulFileSize, ulReadRights, ulWriteRights);
        });
  });
}

ULONG DEVAPI SKF_DeleteFile(HAPPLICATION hApplication, LPSTR szFileName) {
  return run_export("SKF_DeleteFile", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szFileName", szFileName));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    if (ULONG rc = check_file_name(call.ctx(), szFileName)) return call.fail(rc);
    return on_files(
        call, *app, [&](const VendorCall& v) { return v(&SkfDll::SKF_DeleteFile, app->vendorApplication, szFileName); },
        [&](FileStore& store) { return delete_file(call.ctx(), *app, store, szFileName); });
  });
}

ULONG DEVAPI SKF_EnumFiles(HAPPLICATION hApplication, LPSTR szFileList, ULONG* pulSize) {
  return run_export("SKF_EnumFiles", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.pointer("pulSize", pulSize));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    return on_files(
        call, *app,
        [&](const VendorCall& v) { return v(&SkfDll::SKF_EnumFiles, app->vendorApplication, szFileList, pulSize); },
        [&](FileStore& store) { return enum_files(call.ctx(), store, szFileList, pulSize); });
  });
}

ULONG DEVAPI SKF_GetFileInfo(HAPPLICATION hApplication, LPSTR szFileName, FILEATTRIBUTE* pFileInfo) {
  return run_export("SKF_GetFileInfo", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szFileName", szFileName) &&
                             call.pointer("pFileInfo", pFileInfo));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    if (ULONG rc = check_file_name(call.ctx(), szFileName)) return call.fail(rc);
    return on_files(
        call, *app,
        [&](const VendorCall& v) { return v(&SkfDll::SKF_GetFileInfo, app->vendorApplication, szFileName, pFileInfo); },
        [&](FileStore& store) { return file_info(call.ctx(), store, szFileName, pFileInfo); });
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
    if (ULONG rc = check_file_name(call.ctx(), szFileName)) return call.fail(rc);
    if (ulSize > *pulOutLen) return call.fail(SAR_BUFFER_TOO_SMALL);
    return on_files(
        call, *app,
        [&](const VendorCall& v) {
          return v(&SkfDll::SKF_ReadFile, app->vendorApplication, szFileName, ulOffset, ulSize, pbOutData, pulOutLen);
        },
        [&](FileStore& store) {
          return read_file(call.ctx(), *app, store, szFileName, ulOffset, ulSize, pbOutData, pulOutLen);
        });
  });
}

ULONG DEVAPI SKF_WriteFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulOffset, BYTE* pbData, ULONG ulSize) {
  return run_export("SKF_WriteFile", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szFileName", szFileName) &&
                             call.bytes("pbData", pbData, "ulSize", ulSize));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    if (ULONG rc = check_file_name(call.ctx(), szFileName)) return call.fail(rc);
    return on_files(
        call, *app,
        [&](const VendorCall& v) {
          return v(&SkfDll::SKF_WriteFile, app->vendorApplication, szFileName, ulOffset, pbData, ulSize);
        },
        [&](FileStore& store) { return write_file(call.ctx(), *app, store, szFileName, ulOffset, pbData, ulSize); });
  });
}

}  // extern "C"
