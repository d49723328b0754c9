#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "exports/frame.h"
#include "exports/lifecycle.h"
#include "token/common.h"
#include "unit.h"

using namespace vorel;

namespace {

class Frame : public ::testing::Test {
 protected:
  void SetUp() override { library_attach(); }
  void TearDown() override {
    for (const void* h : live_) retire(h);
    library_detach();
  }
  template <class T>
  T* keep(std::shared_ptr<T> record) {
    publish(record);
    live_.push_back(record.get());
    return record.get();
  }
  DeviceRecord* emulated_device() {
    auto d = new_record<DeviceRecord>(3);
    VOREL_DEVICE* dup = nullptr;
    VorelPKICryptoDupDevice(pseudo_device(), &dup);
    d->cryptoDevice.reset(dup);
    return keep(d);
  }
  std::vector<const void*> live_;
};

TEST_F(Frame, GenRandomOnTheCryptoRouteFillsTheBuffer) {
  DeviceRecord* dev = emulated_device();
  BYTE a[32] = {0}, b[32] = {0};
  auto log = unit::log_file();
  ASSERT_EQ(SKF_GenRandom(dev, a, sizeof a), static_cast<ULONG>(SAR_OK));
  ASSERT_EQ(SKF_GenRandom(dev, b, sizeof b), static_cast<ULONG>(SAR_OK));
  EXPECT_NE(std::memcmp(a, b, sizeof a), 0);
  EXPECT_NE(log.since().find("[_log] pbRandom            : " + to_hex(a, sizeof a)), std::string::npos);
}

TEST_F(Frame, GenRandomCryptoFailureIsSarFailWithoutOutputDump) {
  DeviceRecord* dev = keep(new_record<DeviceRecord>(3));  // no crypto-library device behind it
  BYTE out[8];
  auto log = unit::log_file();
  EXPECT_EQ(SKF_GenRandom(dev, out, sizeof out), static_cast<ULONG>(SAR_FAIL));
  std::string text = log.since();
  EXPECT_NE(text.find("[ERROR] [SKF_GenRandom] VorelPKICryptoGenerateRandom fail, error : -2"), std::string::npos);
  EXPECT_NE(text.find("SKF_GenRandom return: 0x0a000001"), std::string::npos);
  EXPECT_EQ(text.find("[_log] pbRandom"), std::string::npos);
}

TEST_F(Frame, CloseHandleFreesEveryPayloadKind) {
  auto hash = new_record<HandleRecord>(3, kHash);
  hash->payload = VorelPKICryptoNewHash(pseudo_device(), VOREL_HASH_SM3);
  ASSERT_NE(hash->payload, nullptr);
  auto key = new_record<HandleRecord>(3, kSessionKey);
  key->payload = vorel_malloc(sizeof(SymmKeyRecord));
  auto mac = new_record<HandleRecord>(3, kMac);
  mac->payload = vorel_malloc(sizeof(MacRecord));
  for (const auto& h : {hash, new_record<HandleRecord>(3, kHash), key, mac, new_record<HandleRecord>(3, 99)}) {
    publish(h);
    EXPECT_EQ(SKF_CloseHandle(h.get()), static_cast<ULONG>(SAR_OK));
    EXPECT_EQ(find_handle(h.get()), nullptr);
  }
}

// Handles are record addresses: a closed one must not come back as the handle of a newer record.
TEST_F(Frame, AClosedHandleStaysRefusedWhileManyMoreRecordsComeAndGo) {
  auto first = new_record<DeviceRecord>(3);
  publish(first);
  const void* closed = first.get();
  first.reset();
  retire(closed);
  std::size_t pagesBefore = record_pages_committed();
  for (std::uint64_t i = 0; i < kAddressCooling; ++i) {
    std::shared_ptr<void> record;
    if (i % 2) {
      record = new_record<DeviceRecord>(3);
      publish(std::static_pointer_cast<DeviceRecord>(record));
    } else {
      record = new_record<HandleRecord>(3, kHash);
      publish(std::static_pointer_cast<HandleRecord>(record));
    }
    const void* address = record.get();
    ASSERT_NE(address, closed) << "after " << i << " records";
    record.reset();
    retire(address);
  }
  EXPECT_EQ(find_device(const_cast<void*>(closed)), nullptr);
  // Records that come and go hold no memory beyond the page being filled.
  EXPECT_LE(record_pages_committed(), pagesBefore + 1);
}

TEST_F(Frame, AnExceptionInsideAnExportBecomesACode) {
  auto log = unit::log_file();
  EXPECT_EQ(run_export("SKF_Test", [](ExportCall&) -> ULONG { throw std::bad_alloc(); }),
            static_cast<ULONG>(SAR_MEMORYERR));
  EXPECT_EQ(run_export("SKF_Test", [](ExportCall&) -> ULONG { throw std::runtime_error("broken"); }),
            static_cast<ULONG>(SAR_FAIL));
  std::string text = log.since();
  EXPECT_NE(text.find("[ERROR] [SKF_Test] out of memory"), std::string::npos);
  EXPECT_NE(text.find("[ERROR] [SKF_Test] unexpected failure: broken"), std::string::npos);
  EXPECT_NE(text.find("SKF_Test return: 0x0a00000e"), std::string::npos);
}

TEST_F(Frame, SizeContractOfOutputBuffers) {
  const char data[] = "abcdef";  // 7 bytes with the zero
  const struct {
    bool null;
    ULONG room, slack;
    ULONG rc, size;
    std::size_t written;
  } cases[] = {
      {true, 0, 0, SAR_OK, 7, 0},
      {false, 7, 0, SAR_OK, 7, 7},
      {false, 6, 0, SAR_BUFFER_TOO_SMALL, 7, 0},
      {false, 6, 1, SAR_OK, 6, 6},
      {false, 5, 1, SAR_BUFFER_TOO_SMALL, 7, 0},
  };
  for (const auto& c : cases) {
    char out[16];
    std::memset(out, '#', sizeof out);
    ULONG size = c.room;
    EXPECT_EQ(put_bytes(data, sizeof data, c.null ? nullptr : out, &size, c.slack), c.rc) << c.room << "/" << c.slack;
    EXPECT_EQ(size, c.size);
    EXPECT_EQ(std::memcmp(out, data, c.written), 0);
    EXPECT_EQ(out[c.written], '#') << "wrote past " << c.written;
  }
}

TEST_F(Frame, ExtensionsReachTheLibrarysOwnDecryption) {
  auto log = unit::log_file();
  ECCCIPHERBLOB cipher{};
  BYTE out[4];
  ULONG len = sizeof out;
  EXPECT_EQ(SKFEX_ECCDecrypt(nullptr, 2, &cipher, out, &len), static_cast<ULONG>(SAR_INVALIDPARAMERR));
  EXPECT_EQ(SKFEX_RSADecrypt(nullptr, out, 4, out, &len, 1), static_cast<ULONG>(SAR_INVALIDPARAMERR));
  std::string text = log.since();
  EXPECT_LT(text.find(">>>>> SKFEX_ECCDecrypt"), text.find(">>>>> SKF_ECCDecrypt"));
  EXPECT_NE(text.find("SKF_RSADecrypt return: 0x0a000006"), std::string::npos);
}

}  // namespace
