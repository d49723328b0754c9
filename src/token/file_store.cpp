#include "token/file_store.h"

#include <cstring>

namespace vorel {

namespace {

// Anyone reads the objects and sees them; a logged-in user or administrator writes and deletes.
const unsigned char kAccess[4] = {0x04, 0x03, 0x07, 0x03};

class CryptoStore : public FileStore {
 public:
  CryptoStore(Ctx ctx, VOREL_DEVICE* device) : ctx_(ctx), device_(device) {}
  ~CryptoStore() override {
    if (held_) VorelPKICryptoUnlockDevice(device_);
  }
  ULONG hold() {
    int rc = VorelPKICryptoLockDevice(device_);
    if (rc != VOREL_OK) return ctx_.crypto_failed("VorelPKICryptoLockDevice", rc);
    held_ = true;
    return SAR_OK;
  }

  ULONG read_master(MasterFile& master) override {
    std::size_t len = 0;
    int rc = VorelPKICryptoGetDataLength(device_, kMasterFileId, &len);
    if (rc != VOREL_OK) {
      VLOG_ERROR(ctx_.name(), "VorelPKICryptoGetDataLength fail, error : %d", rc);
      readError_ = rc;
      return rc == VOREL_ERR_NOT_FOUND ? SAR_FILE_NOT_EXIST : sar_from_vorel(rc, ctx_.name());
    }
    rc = VorelPKICryptoReadData(device_, kMasterFileId, master.bytes, sizeof master.bytes, &len);
    if (rc != VOREL_OK) {
      readError_ = rc;
      return ctx_.crypto_failed("VorelPKICryptoReadData", rc);
    }
    if (len != kMasterSize) {
      VLOG_ERROR(ctx_.name(), "master file of %lu bytes", static_cast<unsigned long>(len));
      return SAR_FAIL;
    }
    VLOG_DEBUG(ctx_.name(), "data : %.*s", static_cast<int>(kMasterSize), reinterpret_cast<char*>(master.bytes));
    // A record whose contents are gone (deleted behind our back, or a delete that died half-way)
    // is dropped.
    bool changed = false;
    for (std::size_t slot = 0; slot < kMasterRecords; ++slot) {
      uint8_t* record = master.bytes + slot * kRecordSize;
      std::size_t size = 0;
      if (record[0] == 0) continue;
      rc = VorelPKICryptoGetDataLength(device_, kContentBase + static_cast<unsigned>(slot), &size);
      if (rc != VOREL_OK) {
        VLOG_ERROR(ctx_.name(), "VorelPKICryptoGetDataLength fail, error : %d", rc);
        std::memset(record, 0, kRecordSize);
        changed = true;
      }
    }
    if (!changed) return SAR_OK;
    rc = VorelPKICryptoWriteData(device_, kMasterFileId, master.bytes, kMasterSize);
    return rc == VOREL_OK ? SAR_OK : ctx_.crypto_failed("VorelPKICryptoWriteData", rc);
  }

  ULONG create_master() override {
    // A data object is made zero-filled: no write of zeros needs to follow.
    int rc = VorelPKICryptoCreateData(device_, kMasterFileId, kAccess, kMasterSize);
    return rc == VOREL_OK ? SAR_OK : ctx_.crypto_failed("VorelPKICryptoCreateData", rc);
  }

  ULONG write_record(int slot, const uint8_t record[kRecordSize]) override {
    int rc = VorelPKICryptoWriteDataEx(device_, kMasterFileId, static_cast<std::size_t>(slot) * kRecordSize, record,
                                       kRecordSize);
    return rc == VOREL_OK ? SAR_OK : ctx_.crypto_failed("VorelPKICryptoWriteDataEx", rc);
  }

  ULONG create_contents(int slot, ULONG size) override {
    int rc = VorelPKICryptoCreateData(device_, id(slot), kAccess, size);
    if (rc == VOREL_ERR_EXISTS) return SAR_FILE_ALREADY_EXIST;
    return rc == VOREL_OK ? SAR_OK : ctx_.crypto_failed("VorelPKICryptoCreateData", rc);
  }

  ULONG delete_contents(int slot) override {
    int rc = VorelPKICryptoDeleteData(device_, id(slot));
    if (rc == VOREL_OK) return SAR_OK;
    ULONG sar = ctx_.crypto_failed("VorelPKICryptoDeleteData", rc);
    return rc == VOREL_ERR_NOT_FOUND ? SAR_FILE_NOT_EXIST : sar;
  }

  ULONG read_contents(int slot, ULONG offset, BYTE* out, ULONG len, ULONG* outLen) override {
    std::size_t got = 0;
    int rc = VorelPKICryptoReadDataEx(device_, id(slot), offset, out, len, &got);
    if (rc != VOREL_OK) return ctx_.crypto_failed("VorelPKICryptoReadDataEx", rc);
    *outLen = static_cast<ULONG>(got);
    return SAR_OK;
  }

  ULONG write_contents(int slot, ULONG offset, const BYTE* data, ULONG len) override {
    int rc = VorelPKICryptoWriteDataEx(device_, id(slot), offset, data, len);
    return rc == VOREL_OK ? SAR_OK : ctx_.crypto_failed("VorelPKICryptoWriteDataEx", rc);
  }

 private:
  static unsigned id(int slot) { return kContentBase + static_cast<unsigned>(slot); }
  Ctx ctx_;
  VOREL_DEVICE* device_;
  bool held_ = false;
};

}  // namespace

std::unique_ptr<FileStore> crypto_file_store(Ctx ctx, VOREL_DEVICE* device, ULONG* rc) {
  auto store = std::make_unique<CryptoStore>(ctx, device);
  *rc = store->hold();
  if (*rc != SAR_OK) return nullptr;
  return store;
}

}  // namespace vorel
