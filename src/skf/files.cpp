#include "skf/files.h"

#include <cstdlib>
#include <cstring>

#include "core/buffers.h"

namespace vorel {

namespace {

bool reserved_name(Ctx ctx, const char* name) {
  int value = std::atoi(name);
  if (value == 8127 || (value >= 8130 && value <= 8138)) {
    VLOG_ERROR(ctx.name(), "Seal file name is not allowed");
    return true;
  }
  return false;
}

// The master file of a route, and the slot of the named file in it.
ULONG find_file(Ctx ctx, FileStore& store, MasterFile& master, const char* name, int* slot) {
  ULONG rc = ReadMasterFile(store, master, false);
  if (rc != SAR_OK) {
    VLOG_ERROR(ctx.name(), "ReadMasterFile fail, error : %d", store.read_error());
    return rc;  // no master file: no file
  }
  *slot = GetExistFileIndex(master, name);
  return *slot < 0 ? SAR_FILE_NOT_EXIST : SAR_OK;
}

// The rights 0x01 and 0x10 ask for the administrator's or the user's PIN verified through the
// application; every other value for nothing.
ULONG rights_allow(Ctx ctx, const ApplicationRecord& app, ULONG rights) {
  if (rights == SECURE_ADM_ACCOUNT && !app.adminPinVerified) {
    VLOG_ERROR(ctx.name(), "not verify so pin");
    return SAR_USER_NOT_LOGGED_IN;
  }
  if (rights == SECURE_USER_ACCOUNT && !app.userPinVerified) {
    VLOG_ERROR(ctx.name(), "not verify user pin");
    return SAR_USER_NOT_LOGGED_IN;
  }
  return SAR_OK;
}

// The slot of the named file, with the range checked against the recorded size and then the
// read or write rights.
ULONG open_file(Ctx ctx, const ApplicationRecord& app, FileStore& store, const char* name, ULONG offset, ULONG size,
                bool writing, int* slot) {
  MasterFile master;
  ULONG rc = find_file(ctx, store, master, name, slot);
  if (rc != SAR_OK) return rc;
  FileRecord record = record_at(master, *slot);
  if (static_cast<uint64_t>(offset) + size > record.size) {
    VLOG_ERROR(ctx.name(), "ulSize too long");
    return SAR_FILE_RANGE;
  }
  return rights_allow(ctx, app, writing ? record.writeRights : record.readRights);
}

}  // namespace

ULONG check_file_name(Ctx ctx, const char* name) { return reserved_name(ctx, name) ? SAR_NAMELENERR : SAR_OK; }

ULONG check_new_file(Ctx ctx, const char* name, ULONG size, ULONG readRights, ULONG writeRights) {
  if (reserved_name(ctx, name)) return SAR_NAMELENERR;
  // An empty name would make a record that reads as a free slot: a file nobody could reach.
  if (!name[0]) {
    VLOG_ERROR(ctx.name(), "Filename is empty");
    return SAR_NAMELENERR;
  }
  if (std::strlen(name) > 32) {
    VLOG_ERROR(ctx.name(), "Filename length too long");
    return SAR_NAMELENERR;
  }
  if (size > 65535) {
    VLOG_ERROR(ctx.name(), "ulFileSize > 65535");
    return SAR_INVALIDPARAMERR;
  }
  if (readRights > 0xFF) {
    VLOG_ERROR(ctx.name(), "ulReadRights error");
    return SAR_INVALIDPARAMERR;
  }
  if (writeRights > 0xFF) {
    VLOG_ERROR(ctx.name(), "ulWriteRights error");
    return SAR_INVALIDPARAMERR;
  }
  return SAR_OK;
}

ULONG create_file(Ctx ctx, FileStore& store, const char* name, ULONG size, ULONG readRights, ULONG writeRights) {
  MasterFile master;
  ULONG rc = ReadMasterFile(store, master, true);
  if (rc != SAR_OK) return rc;
  int slot = GetEmptyFileIndex(master, name);
  if (slot == -1) return SAR_FILE_ALREADY_EXIST;
  if (slot == -2) return SAR_FILE_NOT_RECORDED;
  // Contents first, then the record: a create that dies in between leaves contents that no
  // record names, which the next create of that slot replaces.
  rc = store.create_contents(slot, size);
  if (rc == SAR_FILE_ALREADY_EXIST) {
    rc = store.delete_contents(slot);
    if (rc == SAR_OK) rc = store.create_contents(slot, size);
  }
  if (rc != SAR_OK) return rc;
  uint8_t bytes[kRecordSize];
  encode_record(name, size, readRights, writeRights, bytes);
  rc = store.write_record(slot, bytes);
  if (rc != SAR_OK) {
    VLOG_ERROR(ctx.name(), "roll back, delete file");
    store.delete_contents(slot);
    return rc;
  }
  VLOG_DEBUG(ctx.name(), "update master file success");
  return SAR_OK;
}

ULONG delete_file(Ctx ctx, const ApplicationRecord& app, FileStore& store, const char* name) {
  MasterFile master;
  int slot = -1;
  ULONG rc = find_file(ctx, store, master, name, &slot);
  if (rc == SAR_OK) rc = rights_allow(ctx, app, record_at(master, slot).writeRights);
  if (rc != SAR_OK) return rc;
  // Contents first: a delete that dies in between leaves a record whose contents are gone,
  // which the next read of the master file drops.
  rc = store.delete_contents(slot);
  if (rc != SAR_OK && rc != SAR_FILE_NOT_EXIST) return rc;
  uint8_t zeros[kRecordSize] = {};
  rc = store.write_record(slot, zeros);
  if (rc == SAR_OK) VLOG_DEBUG(ctx.name(), "update master file success");
  return rc;
}

ULONG enum_files(Ctx ctx, FileStore& store, LPSTR list, ULONG* size) {
  MasterFile master;
  ULONG rc = ReadMasterFile(store, master, false);
  if (rc == SAR_FILE_NOT_EXIST) {
    VLOG_WARN(ctx.name(), "Not exist master file");
    *size = 0;
    return SAR_OK;
  }
  if (rc != SAR_OK) {
    VLOG_ERROR(ctx.name(), "ReadMasterFile fail, error : %d", store.read_error());
    return SAR_FAIL;
  }
  char names[kMasterRecords * 33 + 1];
  std::size_t used = 0;
  for (int slot = 0; slot < static_cast<int>(kMasterRecords); ++slot) {
    FileRecord record = record_at(master, slot);
    if (!record.name[0]) continue;
    std::size_t n = std::strlen(record.name) + 1;
    std::memcpy(names + used, record.name, n);
    used += n;
  }
  names[used] = '\0';
  rc = put_bytes(names, used + 1, list, size);
  if (rc == SAR_OK && list) VLOG_DEBUG(ctx.name(), "file list : %.*s", static_cast<int>(used), list);
  VLOG_DEBUG(ctx.name(), "*pulSize: %d", static_cast<int>(*size));
  return rc;
}

ULONG file_info(Ctx ctx, FileStore& store, const char* name, FILEATTRIBUTE* info) {
  MasterFile master;
  int slot = -1;
  ULONG rc = find_file(ctx, store, master, name, &slot);
  if (rc != SAR_OK) return rc;
  FileRecord record = record_at(master, slot);
  std::memset(info, 0, sizeof *info);
  std::memcpy(info->FileName, record.name, sizeof info->FileName);  // 32 characters fill it, unterminated
  info->FileSize = record.size;
  info->ReadRights = record.readRights;
  info->WriteRights = record.writeRights;
  return SAR_OK;
}

ULONG read_file(Ctx ctx, const ApplicationRecord& app, FileStore& store, const char* name, ULONG offset, ULONG size,
                BYTE* out, ULONG* outLen) {
  int slot = -1;
  ULONG rc = open_file(ctx, app, store, name, offset, size, false, &slot);
  return rc == SAR_OK ? store.read_contents(slot, offset, out, size, outLen) : rc;
}

ULONG write_file(Ctx ctx, const ApplicationRecord& app, FileStore& store, const char* name, ULONG offset,
                 const BYTE* data, ULONG size) {
  int slot = -1;
  ULONG rc = open_file(ctx, app, store, name, offset, size, true, &slot);
  return rc == SAR_OK ? store.write_contents(slot, offset, data, size) : rc;
}

}  // namespace vorel
