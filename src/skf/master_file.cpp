#include "skf/master_file.h"

#include <cstdio>
#include <cstring>

#include "core/log.h"

namespace vorel {

namespace {

// The name field of a record: at most 32 bytes, no terminator when full.
std::size_t name_length(const uint8_t* record) { return strnlen(reinterpret_cast<const char*>(record), 32); }
bool holds_name(const uint8_t* record, const char* name, std::size_t nameLen) {
  return record[0] != 0 && name_length(record) == nameLen && std::memcmp(record, name, nameLen) == 0;
}

ULONG get16(const uint8_t* p) { return static_cast<ULONG>(p[0]) << 8 | p[1]; }
void put16(uint8_t* p, ULONG v) {
  p[0] = static_cast<uint8_t>(v >> 8);
  p[1] = static_cast<uint8_t>(v);
}

}  // namespace

FileRecord record_at(const MasterFile& master, int slot) {
  const uint8_t* r = master.bytes + static_cast<std::size_t>(slot) * kRecordSize;
  FileRecord record;
  std::memcpy(record.name, r, name_length(r));
  record.size = get16(r + 32);
  record.readRights = get16(r + 34);
  record.writeRights = get16(r + 36);
  return record;
}

void encode_record(const char* name, ULONG size, ULONG readRights, ULONG writeRights, uint8_t out[kRecordSize]) {
  std::memset(out, 0, kRecordSize);
  std::memcpy(out, name, strnlen(name, 32));
  put16(out + 32, size);
  put16(out + 34, readRights);
  put16(out + 36, writeRights);
}

ULONG ReadMasterFile(FileStore& store, MasterFile& master, bool create) {
  ULONG rc = store.read_master(master);
  if (rc == SAR_FILE_NOT_EXIST && create) {
    rc = store.create_master();
    std::memset(master.bytes, 0, sizeof master.bytes);
  }
  return rc;
}

int GetEmptyFileIndex(const MasterFile& master, const char* name) {
  std::size_t nameLen = std::strlen(name);
  int empty = -1;
  // Every record is looked at: a name held anywhere wins over a free slot.
  for (int slot = 0; slot < static_cast<int>(kMasterRecords); ++slot) {
    const uint8_t* record = master.bytes + static_cast<std::size_t>(slot) * kRecordSize;
    if (record[0] == 0) {
      if (empty < 0) empty = slot;
    } else if (holds_name(record, name, nameLen)) {
      VLOG_DEBUG("GetEmptyFileIndex", "The file already exist");
      return -1;
    }
  }
  if (empty < 0) {
    VLOG_DEBUG("GetEmptyFileIndex", "Not find empty room");
    return -2;
  }
  VLOG_DEBUG("GetEmptyFileIndex", "%-20s: %d", "index", empty);
  return empty;
}

int GetExistFileIndex(const MasterFile& master, const char* name) {
  VLOG_DEBUG("GetExistFileIndex", "%-20s: %s", "fileName", name);
  std::size_t nameLen = std::strlen(name);
  for (int slot = 0; slot < static_cast<int>(kMasterRecords); ++slot) {
    if (holds_name(master.bytes + static_cast<std::size_t>(slot) * kRecordSize, name, nameLen)) {
      VLOG_DEBUG("GetExistFileIndex", "The file is exist");
      return slot;
    }
  }
  VLOG_DEBUG("GetExistFileIndex", "The file not exist");
  return -1;
}

}  // namespace vorel
