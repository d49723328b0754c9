// Devices of a vendor module: what reaches the vendor, what comes back, what is missing.
#include <cstring>

#include "export_catalogue.h"

namespace device {
namespace {

using testsupport::arg;

class VendorDevices : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    with_fixture_as_7();
    vendor_ = std::make_unique<testsupport::Recorder>(testsupport::module_path(VENDOR_FIXTURE));
  }
  void with_fixture_as_7() { configure(R"({"devices":[)" + vendor_entry(7) + "," + empty_vendor_entry(8) + "]}"); }
  // Type 7 served by entry, keeping its own file names: its file exports are forwarded as they are.
  void keeping_names(std::string entry) {
    entry.insert(entry.size() - 1, R"(,"useMasterFile":false)");
    configure(R"({"devices":[)" + entry + "]}");
  }
  // The rows the vendor's function of the same name serves, closing ones last and children first.
  static std::vector<const ExportRow*> forwarded(const Catalogue& cat) {
    std::vector<const ExportRow*> rows, closers;
    for (const ExportRow& r : cat.rows) {
      if (r.route == kCloses) closers.insert(closers.begin(), &r);
      if (r.route == kForwarded || r.route == kWraps) rows.push_back(&r);
    }
    rows.insert(rows.end(), closers.begin(), closers.end());
    return rows;
  }

  std::unique_ptr<testsupport::Recorder> vendor_;
};

TEST_F(VendorDevices, ADeviceIsConnectedByItsOwnNameAndDescribedFromTheConnection) {
  DEVHANDLE h = connect("7#FIXTURE0");
  EXPECT_EQ(vendor_->text("SKF_ConnectDev"), "FIXTURE0");
  DEVINFO info;
  ASSERT_EQ(SKF_GetDevInfo(h, &info), kOk);
  EXPECT_STREQ(info.Label, "FIXTURE LABEL");
  EXPECT_EQ(vendor_->calls("SKF_GetDevInfo"), 1);  // answered from the connection's copy
  char other[] = "7#OTHER";
  ULONG state = 0;
  EXPECT_EQ(SKF_GetDevState(other, &state), kOk);
  EXPECT_EQ(vendor_->text("SKF_GetDevState"), "OTHER");
  vendor_->answer("SKF_GetDevState", 0x0B000101);
  EXPECT_EQ(SKF_GetDevState(other, &state), 0x0B000101u);
}

// Each forwarded export reaches the vendor with the vendor's own handle of the right object and
// the caller's other arguments; a vendor failure comes back unchanged and logged, with no new
// handle; a refused close keeps our handle, a close that works ends it.
TEST_F(VendorDevices, EveryForwardedExportReachesTheVendorWithItsHandleAndArguments) {
  keeping_names(vendor_entry(7));
  Catalogue cat;
  HandleSet s = open_under(connect("7#FIXTURE0"), vendor_.get());
  for (int k = kDevice; k < kKinds; ++k) EXPECT_NE(arg(s.h[k]), s.vendor[k]) << kSlotNames[k];
  ULONG code = 0x0B000100;
  for (const ExportRow* r : forwarded(cat)) {
    for (int k : r->slot == kAnyGeneric ? std::vector<int>{kMac, kHash, kKey} : std::vector<int>{r->slot}) {
      vendor_->answer(r->name, ++code);
      auto log = log_file();
      cat.args.made = reinterpret_cast<HANDLE>(0x5);
      EXPECT_EQ(r->call(s.h[k]), code) << r->name;
      if (r->route == kWraps) {
        EXPECT_EQ(cat.args.made, reinterpret_cast<HANDLE>(0x5)) << r->name << ": no handle for a refused call";
      }
      char expected[96];
      std::snprintf(expected, sizeof expected, "[ERROR] [%s] %s fail, error : 0x%08x", r->name, r->name, code);
      EXPECT_NE(log.since().find(expected), std::string::npos) << expected;
      vendor_->answer(r->name, SAR_OK);
      ASSERT_EQ(r->call(s.h[k]), kOk) << r->name;
      std::vector<uint64_t> want = r->vendorSees(s.vendor[k]), got = vendor_->last(r->name);
      ASSERT_EQ(got.size(), want.size() + (r->route == kWraps ? 1 : 0)) << r->name;
      EXPECT_EQ(std::vector<uint64_t>(got.begin(), got.begin() + want.size()), want) << r->name;
      if (r->route == kCloses) {
        EXPECT_EQ(r->call(s.h[k]), static_cast<ULONG>(SAR_INVALIDHANDLEERR)) << r->name;
      }
    }
  }
  EXPECT_EQ(vendor_->file_trace().find("4361"), std::string::npos);  // no master file on such a type
  connected_.clear();
}

TEST_F(VendorDevices, ConnectingTheFirstDeviceAsksTheVendorsList) {
  vendor_->names(std::string("FIRST\0SECOND", 12));
  connect("7#?");
  EXPECT_EQ(vendor_->text("SKF_ConnectDev"), "FIRST");

  char first[] = "7#?";
  DEVHANDLE h = nullptr;
  vendor_->reset();
  vendor_->names("");
  EXPECT_EQ(SKF_ConnectDev(first, &h), static_cast<ULONG>(SAR_DEVICE_REMOVED));
  EXPECT_EQ(vendor_->calls("SKF_ConnectDev"), 0);
  vendor_->answer("SKF_EnumDev", 0x0B000300);
  auto log = log_file();
  EXPECT_EQ(SKF_ConnectDev(first, &h), 0x0B000300u);
  EXPECT_EQ(h, nullptr);
  EXPECT_NE(log.since().find("[SKF_ConnectDev] SKF_EnumDev fail, error : 0x0b000300"), std::string::npos);
}

TEST_F(VendorDevices, AConnectionThatCannotBeCompletedIsClosedAtTheVendor) {
  vendor_->answer("SKF_GetDevInfo", 0x0B000400);
  char name[] = "7#FIXTURE0";
  DEVHANDLE h = nullptr;
  auto log = log_file();
  EXPECT_EQ(SKF_ConnectDev(name, &h), 0x0B000400u);
  EXPECT_NE(log.since().find("[SKF_ConnectDev] SKF_GetDevInfo fail, error : 0x0b000400"), std::string::npos);
  EXPECT_EQ(h, nullptr);
  EXPECT_EQ(vendor_->calls("SKF_DisConnectDev"), 1);
  EXPECT_EQ(vendor_->last("SKF_DisConnectDev"), std::vector<uint64_t>{vendor_->last("SKF_GetDevInfo").at(0)});
}

TEST_F(VendorDevices, FunctionsTheModuleLacksAreNotSupported) {
  char name[] = "8#X", own[] = "7#A";
  DEVHANDLE h = nullptr;
  auto log = log_file();
  EXPECT_EQ(SKF_ConnectDev(name, &h), static_cast<ULONG>(SAR_NOTSUPPORTYETERR));
  EXPECT_NE(log.since().find("[ERROR] [SKF_ConnectDev] SKF_ConnectDev is not support"), std::string::npos);

  // Objects opened through the recording module, whose type now names the empty one.
  Catalogue cat;
  HandleSet s = open_under(connect("7#FIXTURE0"));
  keeping_names(empty_vendor_entry(7));
  ULONG state = 0;
  EXPECT_EQ(SKF_GetDevState(own, &state), static_cast<ULONG>(SAR_NOTSUPPORTYETERR));
  for (const ExportRow* r : forwarded(cat)) {
    auto caseLog = log_file();
    EXPECT_EQ(r->call(s.of(r->slot)), static_cast<ULONG>(SAR_NOTSUPPORTYETERR)) << r->name;
    EXPECT_NE(caseLog.since().find(std::string(r->name) + " is not support"), std::string::npos) << r->name;
  }

  // Without any module for its type the device cannot be disconnected at its vendor.
  configure(R"({"devices":[{"type":3}]})");
  auto unknownLog = log_file();
  EXPECT_EQ(SKF_DisConnectDev(s.h[kDevice]), static_cast<ULONG>(SAR_UNKNOWNERR));
  EXPECT_NE(unknownLog.since().find("[ERROR] [SKF_DisConnectDev] device type : 7 is not support"), std::string::npos);
  with_fixture_as_7();
  EXPECT_EQ(SKF_DisConnectDev(s.h[kDevice]), kOk);
  connected_.clear();
}

// Private-key decryption reaches the function of the container's vendor family: the one its type
// number stands for, or the one its configuration entry names.
TEST_F(VendorDevices, PrivateKeyDecryptionGoesToEachFamilysFunction) {
  const struct {
    int type;
    const char* prefix;
    const char* ecc;  // the function for the signing pair; for OLYM that of the encryption pair differs
    const char* rsa;
    const char* joins = nullptr;  // "decryptFamily" of the entry
  } families[] = {
      {49, "HSIC", "SKF_PrvKeyDecrypt", "SKF_RSADecrypt"},
      {50, "FEITIAN_BLUETOOTH", "SKF_ECCPrvKeyDecrypt", "SKF_RSADecrypt"},
      {55, "LONGMAI", "SKF_ECCPrvKeyDecrypt", "SKF_RSADecrypt"},
      {62, "WINTRUST", "SKF_ECCDecrypt", "SKF_RSADecrypt"},
      {64, "OLYM", "SKF_ECCDecryptDataWithSignSK", "SKF_RSADecryptDataEx"},
      {66, "DINGXIN", "V_ECCPrvKeyDecrypt", "V_RSAPrvKeyDecrypt"},
      {68, "ES_SJK1944G", "SKF_ECCDecrypt", "SKF_RSADecrypt"},
      {70, "FEITIAN_SJK1104G", "SKF_ECCDecryptEx", "SKF_RSADecrypt"},
      {73, "BIOCOME", "SKF_ECCDecrypt", "SKF_RSADecrypt"},
      {75, "FISEC", "SKF_PrvKeyDecrypt", "SKF_RSADecrypt"},
      {51, nullptr, nullptr, nullptr},  // no family
      {51, "HSIC", "SKF_PrvKeyDecrypt", "SKF_RSADecrypt", "HSIC"},
      {49, nullptr, nullptr, nullptr, "NOT_A_FAMILY"},
  };
  Bytes memory(sizeof(ECCCIPHERBLOB) + 16, 0);
  auto* ct = reinterpret_cast<ECCCIPHERBLOB*>(memory.data());
  ct->CipherLen = 16;
  BYTE out[64];
  ULONG n = sizeof out;
  char text[] = "C";
  for (const auto& f : families) {
    std::string entry = vendor_entry(f.type);
    if (f.joins) entry.insert(entry.size() - 1, std::string(R"(,"decryptFamily":")") + f.joins + "\"");
    configure(R"({"devices":[)" + entry + "]}");
    DEVHANDLE dev = connect(std::to_string(f.type) + "#FIXTURE0");
    HAPPLICATION app = nullptr;
    HCONTAINER c = nullptr;
    ASSERT_EQ(SKF_OpenApplication(dev, text, &app), kOk);
    ASSERT_EQ(SKF_OpenContainer(app, text, &c), kOk);
    uint64_t vcon = vendor_->handle();
    if (!f.prefix) {
      EXPECT_EQ(SKF_ECCDecrypt(c, TRUE, ct, out, &n), static_cast<ULONG>(SAR_NOTSUPPORTYETERR));
      EXPECT_EQ(SKFEX_RSADecrypt(c, out, 16, out, &n, 2), static_cast<ULONG>(SAR_NOTSUPPORTYETERR));
      continue;
    }
    // keySpec 2 picks the signing pair; 1 and 3 the encryption pair.
    for (int32_t keySpec : {2, 1, 3}) {
      bool sign = keySpec == 2;
      std::string ecc = f.ecc;
      if (!sign && f.type == 64) ecc = "SKF_ECCDecryptData";
      ASSERT_EQ(SKFEX_ECCDecrypt(c, keySpec, ct, out, &n), kOk) << f.prefix;
      std::vector<uint64_t> got = vendor_->last(ecc.c_str());
      ASSERT_FALSE(got.empty()) << f.prefix << " " << ecc;
      EXPECT_EQ(got[0], vcon) << f.prefix;
      if (f.type == 64) {
        EXPECT_EQ(got[2], 16u + 97) << "OLYM takes the cipher text as one string";
      } else if (f.ecc == std::string("SKF_PrvKeyDecrypt")) {
        EXPECT_EQ(got[1], sign ? 2u : 1u) << f.prefix << " key selector";
      } else {
        EXPECT_EQ(got[1], sign ? 1u : 0u) << f.prefix << " signing flag";
      }
      ASSERT_EQ(SKFEX_RSADecrypt(c, out, 16, out, &n, keySpec), kOk) << f.prefix;
      got = vendor_->last(f.rsa);
      ASSERT_FALSE(got.empty()) << f.prefix << " " << f.rsa;
      EXPECT_EQ(got[0], vcon);
      EXPECT_EQ(got[1], sign ? 1u : 0u);
    }
    // The family's module without its functions.
    std::string empty = empty_vendor_entry(f.type);
    if (f.joins) empty.insert(empty.size() - 1, std::string(R"(,"decryptFamily":")") + f.joins + "\"");
    configure(R"({"devices":[)" + empty + "]}");
    auto log = log_file();
    EXPECT_EQ(SKF_ECCDecrypt(c, TRUE, ct, out, &n), static_cast<ULONG>(SAR_NOTSUPPORTYETERR));
    EXPECT_EQ(SKF_RSADecrypt(c, TRUE, out, 16, out, &n), static_cast<ULONG>(SAR_NOTSUPPORTYETERR));
    std::string logged = log.since();
    EXPECT_NE(logged.find(std::string(f.prefix) + "_" + f.ecc + " is not support"), std::string::npos) << logged;
    EXPECT_NE(logged.find(std::string(f.prefix) + "_" + f.rsa + " is not support"), std::string::npos) << logged;
    configure(R"({"devices":[)" + entry + "]}");
  }
}

#ifndef _WIN32
// USB presence is read from a sysfs tree of our own.
class VendorPresence : public VendorDevices {
 protected:
  void SetUp() override {
    VendorDevices::SetUp();
    std::string root = testsupport::make_temp_dir("sysfs");
    std::string dev = root + "bus/usb/devices/1-2";
    ASSERT_EQ(std::system(("mkdir -p '" + dev + "'").c_str()), 0);
    testsupport::write_file(dev + "/idVendor", "1234\n");
    testsupport::write_file(dev + "/idProduct", "5678\n");
    sysfs_ = std::make_unique<testsupport::ScopedEnv>("VOREL_SKF_SYSFS", root.c_str());
  }
  std::unique_ptr<testsupport::ScopedEnv> sysfs_;
};

TEST_F(VendorPresence, APluggedTokenIsListedByItsVendorsNames) {
  configure(R"({"devices":[{"type":3},)" + vendor_entry(7, R"(["vid_1234&PID_5678"])") + "]}");
  make_token(3, "A11");
  vendor_->names(std::string("ONE\0TWO", 7));
  EXPECT_EQ(enumerate(true), (std::vector<std::string>{"3#A11", "7#ONE", "7#TWO"}));
  EXPECT_EQ(vendor_->last("SKF_EnumDev").at(0), 1u);

  const struct {
    std::string pidvids;
    ULONG vendorAnswer;
    const char* logged;
  } absent[] = {
      {R"(["VID_1234&PID_9999"])", SAR_OK, "[ERROR] [GetDeviceNameFromSKF] Not find usb key by pidvids"},
      {"[]", SAR_OK, "Not find usb key by pidvids"},
      {R"(["VID_1234"])", 0x0B000001, "[ERROR] [GetDeviceNameFromSKF] SKF_EnumDev fail, error : 184549377"},
  };
  for (const auto& c : absent) {
    configure(R"({"devices":[{"type":3},)" + vendor_entry(7, c.pidvids) + "]}");
    vendor_->answer("SKF_EnumDev", c.vendorAnswer);
    auto log = log_file();
    EXPECT_EQ(enumerate(true), std::vector<std::string>{"3#A11"}) << c.pidvids;
    EXPECT_NE(log.since().find(c.logged), std::string::npos) << c.logged;
  }
}
#else
TEST_F(VendorDevices, WithoutAnyUsbDeviceTheVendorTypeIsNotListed) {
  configure(R"({"devices":[{"type":3},)" + vendor_entry(7, R"(["VID_FFFF&PID_FFFE"])") + "]}");
  make_token(3, "A11");
  auto log = log_file();
  EXPECT_EQ(enumerate(true), std::vector<std::string>{"3#A11"});
  EXPECT_NE(log.since().find("Not find usb key by pidvids"), std::string::npos);
}
#endif

}  // namespace
}  // namespace device
