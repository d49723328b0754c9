#include "vendor/file_store.h"

#include <cstdio>
#include <cstring>

namespace vorel {

namespace {

class VendorStore : public FileStore {
 public:
  VendorStore(const VendorCall& v, HAPPLICATION app) : v_(v), app_(app) {}

  ULONG read_master(MasterFile& master) override {
    char name[] = "4361";
    ULONG len = kMasterSize;
    ULONG rc = v_(&SkfDll::SKF_ReadFile, app_, name, 0u, static_cast<ULONG>(kMasterSize), master.bytes, &len);
    readError_ = static_cast<int>(rc);
    if (rc == SAR_OK && len != kMasterSize) {
      VLOG_ERROR(v_.ctx().name(), "master file of %lu bytes", static_cast<unsigned long>(len));
      return SAR_FAIL;
    }
    return rc;
  }

  ULONG create_master() override {
    char name[] = "4361";
    uint8_t zeros[kMasterSize] = {};
    ULONG rc = v_(&SkfDll::SKF_CreateFile, app_, name, static_cast<ULONG>(kMasterSize), 0xFFu, 0xFFu);
    if (rc != SAR_OK) return rc;
    return v_(&SkfDll::SKF_WriteFile, app_, name, 0u, zeros, static_cast<ULONG>(kMasterSize));
  }

  ULONG write_record(int slot, const uint8_t record[kRecordSize]) override {
    char name[] = "4361";
    uint8_t copy[kRecordSize];
    std::memcpy(copy, record, kRecordSize);
    return v_(&SkfDll::SKF_WriteFile, app_, name, static_cast<ULONG>(slot * kRecordSize), copy,
              static_cast<ULONG>(kRecordSize));
  }

  ULONG create_contents(int slot, ULONG size) override {
    Name name(slot);
    return v_(&SkfDll::SKF_CreateFile, app_, name.text, size, 0xFFu, 0xFFu);
  }

  ULONG delete_contents(int slot) override {
    Name name(slot);
    return v_(&SkfDll::SKF_DeleteFile, app_, name.text);
  }

  ULONG read_contents(int slot, ULONG offset, BYTE* out, ULONG len, ULONG* outLen) override {
    Name name(slot);
    *outLen = len;
    ULONG rc = v_(&SkfDll::SKF_ReadFile, app_, name.text, offset, len, out, outLen);
    if (rc != SAR_OK || *outLen <= len) return rc;
    // A length beyond the buffer would send the caller reading past it.
    VLOG_ERROR(v_.ctx().name(), "the vendor read %lu bytes into a buffer of %lu", static_cast<unsigned long>(*outLen),
               static_cast<unsigned long>(len));
    *outLen = 0;
    return SAR_FAIL;
  }

  ULONG write_contents(int slot, ULONG offset, const BYTE* data, ULONG len) override {
    Name name(slot);
    return v_(&SkfDll::SKF_WriteFile, app_, name.text, offset, const_cast<BYTE*>(data), len);
  }

 private:
  // The contents of slot i are the file named 0x1100 + i in decimal.
  struct Name {
    char text[16];
    explicit Name(int slot) { std::snprintf(text, sizeof text, "%d", static_cast<int>(kContentBase) + slot); }
  };
  VendorCall v_;
  HAPPLICATION app_;
};

}  // namespace

std::unique_ptr<FileStore> vendor_file_store(const VendorCall& v, HAPPLICATION app) {
  return std::make_unique<VendorStore>(v, app);
}

}  // namespace vorel
