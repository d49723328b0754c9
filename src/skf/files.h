// SKF files through the master file: the rules of names, sizes and rights, and the order of the
// writes, over a FileStore that a wing provides (token/file_store.h, vendor/file_store.h). Each
// function answers an SKF code and logs the cause of a failure; the export writes the return line.
#pragma once

#include "core/context.h"
#include "core/records.h"
#include "skf/master_file.h"

namespace vorel {

// The checks of a file name on every route, forwarded or not: names the tokens keep for
// themselves are refused (SAR_NAMELENERR, "Seal file name is not allowed").
ULONG check_file_name(Ctx ctx, const char* name);
// The same and the rules of a new file: 1 to 32 characters, at most 65535 bytes, rights up to 0xFF.
ULONG check_new_file(Ctx ctx, const char* name, ULONG size, ULONG readRights, ULONG writeRights);

ULONG create_file(Ctx ctx, FileStore& store, const char* name, ULONG size, ULONG readRights, ULONG writeRights);
// Deleting needs the file's write rights, as writing does.
ULONG delete_file(Ctx ctx, const ApplicationRecord& app, FileStore& store, const char* name);
// The names as a multi-string, with the size contract; no master file yet is no file (size 0).
ULONG enum_files(Ctx ctx, FileStore& store, LPSTR list, ULONG* size);
ULONG file_info(Ctx ctx, FileStore& store, const char* name, FILEATTRIBUTE* info);
ULONG read_file(Ctx ctx, const ApplicationRecord& app, FileStore& store, const char* name, ULONG offset, ULONG size,
                BYTE* out, ULONG* outLen);
ULONG write_file(Ctx ctx, const ApplicationRecord& app, FileStore& store, const char* name, ULONG offset,
                 const BYTE* data, ULONG size);

}  // namespace vorel
