#include "core/device/master_file.h"

#include <cstdio>
#include <cstring>

namespace vorel {

namespace {

// Anyone reads the objects and sees them; a logged-in user or administrator writes and deletes.
const unsigned char kAccess[4] = {0x04, 0x03, 0x07, 0x03};

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

class CryptoStore : public FileStore {
 public:
  CryptoStore(const ExportCall& call, VOREL_DEVICE* device) : call_(call), device_(device) {}
  ~CryptoStore() override {
    if (held_) VorelPKICryptoUnlockDevice(device_);
  }
  ULONG hold() {
    int rc = VorelPKICryptoLockDevice(device_);
    if (rc != VOREL_OK) return call_.crypto_failed("VorelPKICryptoLockDevice", rc);
    held_ = true;
    return SAR_OK;
  }

  ULONG read_master(MasterFile& master) override {
    std::size_t len = 0;
    int rc = VorelPKICryptoGetDataLength(device_, kMasterFileId, &len);
    if (rc != VOREL_OK) {
      VLOG_ERROR(call_.name(), "VorelPKICryptoGetDataLength fail, error : %d", rc);
      readError_ = rc;
      return rc == VOREL_ERR_NOT_FOUND ? SAR_FILE_NOT_EXIST : sar_from_vorel(rc, call_.name());
    }
    rc = VorelPKICryptoReadData(device_, kMasterFileId, master.bytes, sizeof master.bytes, &len);
    if (rc != VOREL_OK) {
      readError_ = rc;
      return call_.crypto_failed("VorelPKICryptoReadData", rc);
    }
    if (len != kMasterSize) {
      VLOG_ERROR(call_.name(), "master file of %lu bytes", static_cast<unsigned long>(len));
      return SAR_FAIL;
    }
    VLOG_DEBUG(call_.name(), "data : %.*s", static_cast<int>(kMasterSize), reinterpret_cast<char*>(master.bytes));
    // A record whose contents are gone (deleted behind our back, or a delete that died half-way)
    // is dropped.
    bool changed = false;
    for (std::size_t slot = 0; slot < kMasterRecords; ++slot) {
      uint8_t* record = master.bytes + slot * kRecordSize;
      std::size_t size = 0;
      if (record[0] == 0) continue;
      rc = VorelPKICryptoGetDataLength(device_, kContentBase + static_cast<unsigned>(slot), &size);
      if (rc != VOREL_OK) {
        VLOG_ERROR(call_.name(), "VorelPKICryptoGetDataLength fail, error : %d", rc);
        std::memset(record, 0, kRecordSize);
        changed = true;
      }
    }
    if (!changed) return SAR_OK;
    rc = VorelPKICryptoWriteData(device_, kMasterFileId, master.bytes, kMasterSize);
    return rc == VOREL_OK ? SAR_OK : call_.crypto_failed("VorelPKICryptoWriteData", rc);
  }

  ULONG create_master() override {
    // A data object is made zero-filled: no write of zeros needs to follow.
    int rc = VorelPKICryptoCreateData(device_, kMasterFileId, kAccess, kMasterSize);
    return rc == VOREL_OK ? SAR_OK : call_.crypto_failed("VorelPKICryptoCreateData", rc);
  }

  ULONG write_record(int slot, const uint8_t record[kRecordSize]) override {
    int rc = VorelPKICryptoWriteDataEx(device_, kMasterFileId, static_cast<std::size_t>(slot) * kRecordSize, record,
                                       kRecordSize);
    return rc == VOREL_OK ? SAR_OK : call_.crypto_failed("VorelPKICryptoWriteDataEx", rc);
  }

  ULONG create_contents(int slot, ULONG size) override {
    int rc = VorelPKICryptoCreateData(device_, id(slot), kAccess, size);
    if (rc == VOREL_ERR_EXISTS) return SAR_FILE_ALREADY_EXIST;
    return rc == VOREL_OK ? SAR_OK : call_.crypto_failed("VorelPKICryptoCreateData", rc);
  }

  ULONG delete_contents(int slot) override {
    int rc = VorelPKICryptoDeleteData(device_, id(slot));
    if (rc == VOREL_OK) return SAR_OK;
    ULONG sar = call_.crypto_failed("VorelPKICryptoDeleteData", rc);
    return rc == VOREL_ERR_NOT_FOUND ? SAR_FILE_NOT_EXIST : sar;
  }

  ULONG read_contents(int slot, ULONG offset, BYTE* out, ULONG len, ULONG* outLen) override {
    std::size_t got = 0;
    int rc = VorelPKICryptoReadDataEx(device_, id(slot), offset, out, len, &got);
    if (rc != VOREL_OK) return call_.crypto_failed("VorelPKICryptoReadDataEx", rc);
    *outLen = static_cast<ULONG>(got);
    return SAR_OK;
  }

  ULONG write_contents(int slot, ULONG offset, const BYTE* data, ULONG len) override {
    int rc = VorelPKICryptoWriteDataEx(device_, id(slot), offset, data, len);
    return rc == VOREL_OK ? SAR_OK : call_.crypto_failed("VorelPKICryptoWriteDataEx", rc);
  }

 private:
  static unsigned id(int slot) { return kContentBase + static_cast<unsigned>(slot); }
  const ExportCall& call_;
  VOREL_DEVICE* device_;
  bool held_ = false;
};

class VendorStore : public FileStore {
 public:
  VendorStore(const ExportCall& call, const SkfDll& dll, HAPPLICATION app) : call_(call), dll_(dll), app_(app) {}

  ULONG read_master(MasterFile& master) override {
    char name[] = "4361";
    ULONG len = kMasterSize;
    ULONG rc = call_.vendor_call(dll_, &SkfDll::SKF_ReadFile, app_, name, 0u, static_cast<ULONG>(kMasterSize),
                                 master.bytes, &len);
    readError_ = static_cast<int>(rc);
    if (rc == SAR_OK && len != kMasterSize) {
      VLOG_ERROR(call_.name(), "master file of %lu bytes", static_cast<unsigned long>(len));
      return SAR_FAIL;
    }
    return rc;
  }

  ULONG create_master() override {
    char name[] = "4361";
    uint8_t zeros[kMasterSize] = {};
    ULONG rc =
        call_.vendor_call(dll_, &SkfDll::SKF_CreateFile, app_, name, static_cast<ULONG>(kMasterSize), 0xFFu, 0xFFu);
    if (rc != SAR_OK) return rc;
    return call_.vendor_call(dll_, &SkfDll::SKF_WriteFile, app_, name, 0u, zeros, static_cast<ULONG>(kMasterSize));
  }

  ULONG write_record(int slot, const uint8_t record[kRecordSize]) override {
    char name[] = "4361";
    uint8_t copy[kRecordSize];
    std::memcpy(copy, record, kRecordSize);
    return call_.vendor_call(dll_, &SkfDll::SKF_WriteFile, app_, name, static_cast<ULONG>(slot * kRecordSize), copy,
                             static_cast<ULONG>(kRecordSize));
  }

  ULONG create_contents(int slot, ULONG size) override {
    Name name(slot);
    return call_.vendor_call(dll_, &SkfDll::SKF_CreateFile, app_, name.text, size, 0xFFu, 0xFFu);
  }

  ULONG delete_contents(int slot) override {
    Name name(slot);
    return call_.vendor_call(dll_, &SkfDll::SKF_DeleteFile, app_, name.text);
  }

  ULONG read_contents(int slot, ULONG offset, BYTE* out, ULONG len, ULONG* outLen) override {
    Name name(slot);
    *outLen = len;
    ULONG rc = call_.vendor_call(dll_, &SkfDll::SKF_ReadFile, app_, name.text, offset, len, out, outLen);
    if (rc != SAR_OK || *outLen <= len) return rc;
    // A length beyond the buffer would send the caller reading past it.
    VLOG_ERROR(call_.name(), "the vendor read %lu bytes into a buffer of %lu", static_cast<unsigned long>(*outLen),
               static_cast<unsigned long>(len));
    *outLen = 0;
    return SAR_FAIL;
  }

  ULONG write_contents(int slot, ULONG offset, const BYTE* data, ULONG len) override {
    Name name(slot);
    return call_.vendor_call(dll_, &SkfDll::SKF_WriteFile, app_, name.text, offset, const_cast<BYTE*>(data), len);
  }

 private:
  // The contents of slot i are the file named 0x1100 + i in decimal.
  struct Name {
    char text[16];
    explicit Name(int slot) { std::snprintf(text, sizeof text, "%d", static_cast<int>(kContentBase) + slot); }
  };
  const ExportCall& call_;
  const SkfDll& dll_;
  HAPPLICATION app_;
};

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

std::unique_ptr<FileStore> crypto_file_store(const ExportCall& call, VOREL_DEVICE* device, ULONG* rc) {
  auto store = std::make_unique<CryptoStore>(call, device);
  *rc = store->hold();
  if (*rc != SAR_OK) return nullptr;
  return store;
}

std::unique_ptr<FileStore> vendor_file_store(const ExportCall& call, const SkfDll& dll, HAPPLICATION app) {
  return std::make_unique<VendorStore>(call, dll, app);
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
