// SKF files of an application, by route: forwarded to a vendor that keeps file names itself,
// or kept through the master file over a vendor token or over a crypto-library token (the
// configuration's useMasterFile). Each function answers an SKF code; the export writes the
// return line.
#pragma once

#include "core/frame.h"

namespace vorel {

ULONG create_file(const ExportCall& call, const ApplicationRecord& app, LPSTR name, ULONG size, ULONG readRights,
                  ULONG writeRights);
// Deleting needs the file's write rights, as writing does.
ULONG delete_file(const ExportCall& call, const ApplicationRecord& app, LPSTR name);
// The names as a multi-string, with the size contract; no master file yet is no file (size 0).
ULONG enum_files(const ExportCall& call, const ApplicationRecord& app, LPSTR list, ULONG* size);
ULONG file_info(const ExportCall& call, const ApplicationRecord& app, LPSTR name, FILEATTRIBUTE* info);
ULONG read_file(const ExportCall& call, const ApplicationRecord& app, LPSTR name, ULONG offset, ULONG size, BYTE* out,
                ULONG* outLen);
ULONG write_file(const ExportCall& call, const ApplicationRecord& app, LPSTR name, ULONG offset, BYTE* data,
                 ULONG size);

}  // namespace vorel
