#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>

#include "core/config.h"
#include "core/frame.h"
#include "core/lifecycle.h"
#include "unit.h"
#include "vendor.h"

using namespace vorel;

namespace {

const uintptr_t kFailingDevice = 0xBAD0;    // the fixture's SKF_GenRandom fails for it
const uintptr_t kStubbornHandle = 0xC105E;  // the fixture refuses to close it once

class Frame : public ::testing::Test {
 protected:
  void SetUp() override {
    library_attach();
    std::string config = unit::vendor_config();
    ASSERT_EQ(SKF_LoadConfigurationWithContent(const_cast<char*>(config.c_str())), static_cast<ULONG>(SAR_OK));
  }
  void TearDown() override {
    for (DeviceRecord* d : devices_) device_record_free(d);
    GetVorelSKFConfig().LoadWithContent("{}");
    library_detach();
  }
  DeviceRecord* emulated_device() {
    DeviceRecord* d = device_record_new(3);
    VorelPKICryptoDupDevice(pseudo_device(), &d->cryptoDevice);
    devices_.push_back(d);
    return d;
  }
  DeviceRecord* vendor_device(int32_t type, uintptr_t vendorHandle) {
    DeviceRecord* d = device_record_new(type);
    d->vendorDevice = reinterpret_cast<DEVHANDLE>(vendorHandle);
    devices_.push_back(d);
    return d;
  }
  std::vector<DeviceRecord*> devices_;
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
  DeviceRecord* dev = device_record_new(3);  // no crypto-library device behind it
  devices_.push_back(dev);
  BYTE out[8];
  auto log = unit::log_file();
  EXPECT_EQ(SKF_GenRandom(dev, out, sizeof out), static_cast<ULONG>(SAR_FAIL));
  std::string text = log.since();
  EXPECT_NE(text.find("[ERROR] [SKF_GenRandom] VorelPKICryptoGenerateRandom fail, error : -2"), std::string::npos);
  EXPECT_NE(text.find("SKF_GenRandom return: 0x0a000001"), std::string::npos);
  EXPECT_EQ(text.find("[_log] pbRandom"), std::string::npos);
}

TEST_F(Frame, GenRandomForwardsTheVendorHandle) {
  DeviceRecord* dev = vendor_device(7, 0x1122334455667788ull & UINTPTR_MAX);
  BYTE out[8] = {0};
  ASSERT_EQ(SKF_GenRandom(dev, out, sizeof out), static_cast<ULONG>(SAR_OK));
  uintptr_t echoed = 0;
  for (std::size_t i = 0; i < sizeof echoed; ++i) echoed |= static_cast<uintptr_t>(out[i]) << (8 * i);
  EXPECT_EQ(echoed, reinterpret_cast<uintptr_t>(dev->vendorDevice));
}

TEST_F(Frame, VendorCodesPassThroughUnchanged) {
  DeviceRecord* dev = vendor_device(7, kFailingDevice);
  BYTE out[8];
  auto log = unit::log_file();
  EXPECT_EQ(SKF_GenRandom(dev, out, sizeof out), 0x0B000123u);
  std::string text = log.since();
  EXPECT_NE(text.find("[ERROR] [SKF_GenRandom] SKF_GenRandom fail, error : 0x0b000123"), std::string::npos);
  EXPECT_NE(text.find("SKF_GenRandom return: 0x0b000123"), std::string::npos);
}

TEST_F(Frame, MissingVendorFunctionIsNotSupported) {
  DeviceRecord* dev = vendor_device(8, 0x1);
  BYTE out[8];
  auto log = unit::log_file();
  EXPECT_EQ(SKF_GenRandom(dev, out, sizeof out), static_cast<ULONG>(SAR_NOTSUPPORTYETERR));
  EXPECT_NE(log.since().find("[ERROR] [SKF_GenRandom] SKF_GenRandom is not support"), std::string::npos);
}

TEST_F(Frame, TypeLeavingTheMapBetweenTheTwoLookupsIsUnknown) {
  ExportCall call("SKF_Test");
  auto log = unit::log_file();
  EXPECT_EQ(call.forward(42, &SkfDll::SKF_GenRandom, nullptr, nullptr, 0u), static_cast<ULONG>(SAR_UNKNOWNERR));
  EXPECT_NE(log.since().find("[ERROR] [SKF_Test] device type : 42 is not support"), std::string::npos);
}

TEST_F(Frame, FailingVendorCloseLeavesTheHandleUsable) {
  HandleRecord* h = handle_record_new(7, kHash);
  h->vendorHandle = reinterpret_cast<HANDLE>(kStubbornHandle);
  auto log = unit::log_file();
  EXPECT_EQ(SKF_CloseHandle(h), 0x0B000456u);
  EXPECT_NE(log.since().find("SKF_CloseHandle fail, error : 0x0b000456"), std::string::npos);
  EXPECT_EQ(find_handle(h), h);
  EXPECT_EQ(SKF_CloseHandle(h), static_cast<ULONG>(SAR_OK));
  EXPECT_EQ(find_handle(h), nullptr);
  EXPECT_EQ(SKF_CloseHandle(h), static_cast<ULONG>(SAR_INVALIDHANDLEERR));
}

TEST_F(Frame, CloseHandleFreesEveryPayloadKind) {
  HandleRecord* hash = handle_record_new(3, kHash);
  hash->payload = VorelPKICryptoNewHash(pseudo_device(), VOREL_HASH_SM3);
  ASSERT_NE(hash->payload, nullptr);
  HandleRecord* emptyHash = handle_record_new(3, kHash);
  HandleRecord* key = handle_record_new(3, kSessionKey);
  key->payload = vorel_malloc(sizeof(SymmKeyRecord));
  HandleRecord* mac = handle_record_new(3, kMac);
  mac->payload = vorel_malloc(sizeof(MacRecord));
  HandleRecord* other = handle_record_new(3, 99);
  for (HandleRecord* h : {hash, emptyHash, key, mac, other}) {
    EXPECT_EQ(SKF_CloseHandle(h), static_cast<ULONG>(SAR_OK));
    EXPECT_EQ(find_handle(h), nullptr);
  }
}

struct BadHandleCase {
  const char* what;
  std::function<ULONG(DeviceRecord* live, HandleRecord* liveHandle)> call;
};

TEST_F(Frame, UnknownClosedAndWrongKindHandlesAreRefused) {
  DeviceRecord* live = emulated_device();
  HandleRecord* liveHandle = handle_record_new(3, kHash);
  DeviceRecord* closed = device_record_new(3);
  device_record_free(closed);
  static int notARecord[64];
  BYTE out[4];
  const BadHandleCase cases[] = {
      {"unknown device", [&](DeviceRecord*, HandleRecord*) { return SKF_GenRandom(notARecord, out, 4); }},
      {"closed device", [&](DeviceRecord*, HandleRecord*) { return SKF_GenRandom(closed, out, 4); }},
      {"handle as device", [&](DeviceRecord*, HandleRecord* h) { return SKF_GenRandom(h, out, 4); }},
      {"device as handle", [&](DeviceRecord* d, HandleRecord*) { return SKF_CloseHandle(d); }},
      {"unknown handle", [&](DeviceRecord*, HandleRecord*) { return SKF_CloseHandle(notARecord); }},
  };
  for (const BadHandleCase& c : cases) {
    EXPECT_EQ(c.call(live, liveHandle), static_cast<ULONG>(SAR_INVALIDHANDLEERR)) << c.what;
  }
  EXPECT_EQ(find_device(live), live);
  EXPECT_EQ(SKF_CloseHandle(liveHandle), static_cast<ULONG>(SAR_OK));
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
