// The master file: the directory of an application's SKF files where the token keeps no file
// names of its own. 8 records of 38 bytes (name 32, size, read rights, write rights, 16-bit
// big-endian each); the contents of the file in slot i are object 0x1100 + i. It lives in data
// object 4361 of a crypto-library token, or in SKF file "4361" of a vendor token.
#pragma once

#include <cstdint>
#include <memory>

#include "skf.h"

namespace vorel {

constexpr std::size_t kMasterRecords = 8;
constexpr std::size_t kRecordSize = 38;
constexpr std::size_t kMasterSize = kMasterRecords * kRecordSize;  // 304
constexpr unsigned kMasterFileId = 4361;
constexpr unsigned kContentBase = 0x1100;

struct MasterFile {
  uint8_t bytes[kMasterSize];
};

// One record, decoded.
struct FileRecord {
  char name[33] = {};  // empty for a free slot
  ULONG size = 0, readRights = 0, writeRights = 0;
};
FileRecord record_at(const MasterFile& master, int slot);
// The 38 bytes of a record; the name is cut at 32 bytes.
void encode_record(const char* name, ULONG size, ULONG readRights, ULONG writeRights, uint8_t out[kRecordSize]);

// Where the master file and the contents are kept; each call answers an SKF code and logs the
// cause of a failure under the export's name.
class FileStore {
 public:
  virtual ~FileStore() = default;
  // SAR_OK; SAR_FILE_NOT_EXIST when there is no master file yet.
  virtual ULONG read_master(MasterFile& master) = 0;
  // The code of the last failed read of the master file as its backing answered it: the crypto
  // library's number, or the vendor's SKF code.
  int read_error() const { return readError_; }
  virtual ULONG create_master() = 0;
  virtual ULONG write_record(int slot, const uint8_t record[kRecordSize]) = 0;
  // SAR_FILE_ALREADY_EXIST when the slot's contents are there already (left by a create that died).
  virtual ULONG create_contents(int slot, ULONG size) = 0;
  // SAR_FILE_NOT_EXIST when they are gone already.
  virtual ULONG delete_contents(int slot) = 0;
  virtual ULONG read_contents(int slot, ULONG offset, BYTE* out, ULONG len, ULONG* outLen) = 0;
  virtual ULONG write_contents(int slot, ULONG offset, const BYTE* data, ULONG len) = 0;

 protected:
  int readError_ = 0;
};

// The master file, created when it is not there and create is set.
ULONG ReadMasterFile(FileStore& store, MasterFile& master, bool create);
// The first free slot for name; -1 when a record holds the name already ("The file already
// exist"), -2 when no slot is free ("Not find empty room").
int GetEmptyFileIndex(const MasterFile& master, const char* name);
// The slot of the record holding name, or -1 ("The file not exist").
int GetExistFileIndex(const MasterFile& master, const char* name);

}  // namespace vorel
