// Devices of a vendor module: what reaches the vendor, what comes back, what is missing.
#include <cstring>
#include <functional>
#include <tuple>

#include "device_suite.h"

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
  // The handle the vendor gave out for our device: the one its SKF_GetDevInfo received.
  uint64_t vendor_handle() { return vendor_->last("SKF_GetDevInfo").at(0); }

  // An export's call on the vendor route: what its vendor function must receive first (the
  // vendor's handle, then the caller's arguments) and, when not empty, its first text argument.
  struct Forwarded {
    const char* name;
    std::function<ULONG()> call;
    std::vector<uint64_t> args;
    const char* text = nullptr;
  };
  // Each call reaches the vendor as described, and a vendor failure comes back unchanged, logged.
  void expect_forwarded(const std::vector<Forwarded>& cases, ULONG firstCode, HANDLE* out = nullptr) {
    ULONG code = firstCode;
    for (const Forwarded& c : cases) {
      ASSERT_EQ(c.call(), kOk) << c.name;
      std::vector<uint64_t> got = vendor_->last(c.name);
      ASSERT_GE(got.size(), c.args.size()) << c.name;
      EXPECT_EQ(std::vector<uint64_t>(got.begin(), got.begin() + c.args.size()), c.args) << c.name;
      if (c.text) {
        EXPECT_EQ(vendor_->text(c.name), c.text) << c.name;
      }
      vendor_->answer(c.name, ++code);
      auto log = log_file();
      if (out) *out = reinterpret_cast<HANDLE>(0x5);
      EXPECT_EQ(c.call(), code) << c.name;
      if (out) {
        EXPECT_EQ(*out, reinterpret_cast<HANDLE>(0x5)) << c.name << ": no handle for a refused call";
      }
      char expected[96];
      std::snprintf(expected, sizeof expected, "[ERROR] [%s] %s fail, error : 0x%08x", c.name, c.name, code);
      EXPECT_NE(log.since().find(expected), std::string::npos) << expected;
      vendor_->answer(c.name, SAR_OK);
    }
  }

  std::unique_ptr<testsupport::Recorder> vendor_;
};

TEST_F(VendorDevices, EveryDeviceExportReachesTheVendorWithItsOwnHandle) {
  DEVHANDLE h = connect("7#FIXTURE0");
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(vendor_->text("SKF_ConnectDev"), "FIXTURE0");
  uint64_t vh = vendor_handle();
  EXPECT_NE(vh, arg(h));
  DEVINFO info;
  ASSERT_EQ(SKF_GetDevInfo(h, &info), kOk);
  EXPECT_STREQ(info.Label, "FIXTURE LABEL");
  EXPECT_EQ(vendor_->calls("SKF_GetDevInfo"), 1);  // answered from the connection's copy

  BYTE buf[32] = {};
  ULONG len = sizeof buf, state = 0;
  char label[] = "new label", other[] = "7#OTHER";
  expect_forwarded(
      {
          {"SKF_GenRandom", [&] { return SKF_GenRandom(h, buf, 16); }, {vh, arg(buf), 16}, nullptr},
          {"SKF_SetLabel", [&] { return SKF_SetLabel(h, label); }, {vh, arg(label)}, "new label"},
          {"SKF_LockDev", [&] { return SKF_LockDev(h, 1234); }, {vh, 1234}, nullptr},
          {"SKF_UnlockDev", [&] { return SKF_UnlockDev(h); }, {vh}, nullptr},
          {"SKF_Transmit",
           [&] { return SKF_Transmit(h, buf, 4, buf + 8, &len); },
           {vh, arg(buf), 4, arg(buf + 8), arg(&len)},
           nullptr},
          {"SKF_DevAuth", [&] { return SKF_DevAuth(h, buf, 16); }, {vh, arg(buf), 16}, nullptr},
          {"SKF_ChangeDevAuthKey", [&] { return SKF_ChangeDevAuthKey(h, buf, 16); }, {vh, arg(buf), 16}, nullptr},
          {"SKF_GetDevState", [&] { return SKF_GetDevState(other, &state); }, {}, "OTHER"},  // the own name only
      },
      0x0B000100);

  // A refused disconnect keeps the handle; the next one closes it on both sides.
  vendor_->answer("SKF_DisConnectDev", 0x0B000200);
  EXPECT_EQ(SKF_DisConnectDev(h), 0x0B000200u);
  EXPECT_EQ(SKF_GetDevInfo(h, &info), kOk);
  vendor_->answer("SKF_DisConnectDev", SAR_OK);
  EXPECT_EQ(SKF_DisConnectDev(h), kOk);
  EXPECT_EQ(vendor_->last("SKF_DisConnectDev"), std::vector<uint64_t>{vh});
  EXPECT_EQ(SKF_GetDevInfo(h, &info), static_cast<ULONG>(SAR_INVALIDHANDLEERR));
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
  char name[] = "8#X";
  DEVHANDLE h = nullptr;
  auto log = log_file();
  EXPECT_EQ(SKF_ConnectDev(name, &h), static_cast<ULONG>(SAR_NOTSUPPORTYETERR));
  EXPECT_NE(log.since().find("[ERROR] [SKF_ConnectDev] SKF_ConnectDev is not support"), std::string::npos);

  // Objects opened through the recording module, whose type now names the empty one.
  h = connect("7#FIXTURE0");
  char text[] = "x", own[] = "7#A";
  HAPPLICATION app = nullptr;
  HCONTAINER container = nullptr;
  ASSERT_EQ(SKF_OpenApplication(h, text, &app), kOk);
  ASSERT_EQ(SKF_OpenContainer(app, text, &container), kOk);
  configure(R"({"devices":[)" + empty_vendor_entry(7) + "]}");
  BYTE buf[32] = {};
  ULONG len = sizeof buf, state = 0, n = 0;
  BOOL b = FALSE;
  HANDLE out = nullptr;
  char* label = text;
  const struct {
    const char* name;
    std::function<ULONG()> call;
  } cases[] = {
      {"SKF_GenRandom", [&] { return SKF_GenRandom(h, buf, 16); }},
      {"SKF_SetLabel", [&] { return SKF_SetLabel(h, label); }},
      {"SKF_LockDev", [&] { return SKF_LockDev(h, 0); }},
      {"SKF_UnlockDev", [&] { return SKF_UnlockDev(h); }},
      {"SKF_Transmit", [&] { return SKF_Transmit(h, buf, 4, buf, &len); }},
      {"SKF_DevAuth", [&] { return SKF_DevAuth(h, buf, 16); }},
      {"SKF_ChangeDevAuthKey", [&] { return SKF_ChangeDevAuthKey(h, buf, 16); }},
      {"SKF_GetDevState", [&] { return SKF_GetDevState(own, &state); }},
      {"SKF_CreateApplication", [&] { return SKF_CreateApplication(h, text, text, 6, text, 6, 1, &out); }},
      {"SKF_EnumApplication", [&] { return SKF_EnumApplication(h, nullptr, &n); }},
      {"SKF_DeleteApplication", [&] { return SKF_DeleteApplication(h, text); }},
      {"SKF_OpenApplication", [&] { return SKF_OpenApplication(h, text, &out); }},
      {"SKF_VerifyPIN", [&] { return SKF_VerifyPIN(app, USER_TYPE, text, &n); }},
      {"SKF_ChangePIN", [&] { return SKF_ChangePIN(app, USER_TYPE, text, text, &n); }},
      {"SKF_UnblockPIN", [&] { return SKF_UnblockPIN(app, text, text, &n); }},
      {"SKF_GetPINInfo", [&] { return SKF_GetPINInfo(app, USER_TYPE, &n, &n, &b); }},
      {"SKF_GetSecureState", [&] { return SKF_GetSecureState(app, &n); }},
      {"SKF_ClearSecureState", [&] { return SKF_ClearSecureState(app); }},
      {"SKF_CreateContainer", [&] { return SKF_CreateContainer(app, text, &out); }},
      {"SKF_DeleteContainer", [&] { return SKF_DeleteContainer(app, text); }},
      {"SKF_EnumContainer", [&] { return SKF_EnumContainer(app, nullptr, &n); }},
      {"SKF_OpenContainer", [&] { return SKF_OpenContainer(app, text, &out); }},
      {"SKF_GetContainerType", [&] { return SKF_GetContainerType(container, &n); }},
      {"SKF_ImportCertificate", [&] { return SKF_ImportCertificate(container, TRUE, buf, 16); }},
      {"SKF_ExportCertificate", [&] { return SKF_ExportCertificate(container, TRUE, nullptr, &n); }},
      {"SKF_CloseContainer", [&] { return SKF_CloseContainer(container); }},
      {"SKF_CloseApplication", [&] { return SKF_CloseApplication(app); }},
      {"SKF_DisConnectDev", [&] { return SKF_DisConnectDev(h); }},
  };
  for (const auto& c : cases) {
    auto caseLog = log_file();
    EXPECT_EQ(c.call(), static_cast<ULONG>(SAR_NOTSUPPORTYETERR)) << c.name;
    EXPECT_NE(caseLog.since().find(std::string(c.name) + " is not support"), std::string::npos) << c.name;
  }

  // Without any module for its type the device cannot be disconnected at its vendor.
  configure(R"({"devices":[{"type":3}]})");
  auto unknownLog = log_file();
  EXPECT_EQ(SKF_DisConnectDev(h), static_cast<ULONG>(SAR_UNKNOWNERR));
  EXPECT_NE(unknownLog.since().find("[ERROR] [SKF_DisConnectDev] device type : 7 is not support"), std::string::npos);
  with_fixture_as_7();
  EXPECT_EQ(SKF_DisConnectDev(h), kOk);
  connected_.clear();
}

// Applications, PINs, containers and certificates of a vendor device: each export reaches the
// vendor with the vendor's own handle of the right object and the caller's other arguments.
TEST_F(VendorDevices, ObjectsUnderADeviceUseTheVendorsHandles) {
  DEVHANDLE dev = connect("7#FIXTURE0");
  uint64_t vdev = vendor_handle();
  char appName[] = "APP", pin[] = "1234", other[] = "5678", cname[] = "C1";
  HAPPLICATION app = nullptr;
  ASSERT_EQ(SKF_OpenApplication(dev, appName, &app), kOk);
  uint64_t vapp = vendor_->handle();
  EXPECT_EQ(vendor_->last("SKF_OpenApplication").at(0), vdev);
  HCONTAINER container = nullptr;
  ASSERT_EQ(SKF_OpenContainer(app, cname, &container), kOk);
  uint64_t vcon = vendor_->handle();
  EXPECT_EQ(vendor_->last("SKF_OpenContainer").at(0), vapp);
  EXPECT_NE(arg(app), vapp);
  EXPECT_NE(arg(container), vcon);

  BYTE buf[32] = {};
  ULONG n = sizeof buf, m = 0, k = 0;
  BOOL b = FALSE;
  HANDLE out = nullptr;
  using Args = std::vector<uint64_t>;
  expect_forwarded(
      {
          {"SKF_EnumApplication", [&] { return SKF_EnumApplication(dev, appName, &n); }, {vdev, arg(appName), arg(&n)}},
          {"SKF_DeleteApplication", [&] { return SKF_DeleteApplication(dev, appName); }, {vdev, arg(appName)}},
          {"SKF_CreateApplication",
           [&] { return SKF_CreateApplication(dev, appName, pin, 6, other, 5, 0xFF, &out); },
           {vdev, arg(appName), arg(pin), 6, arg(other), 5, 0xFF}},
          {"SKF_VerifyPIN",
           [&] { return SKF_VerifyPIN(app, USER_TYPE, pin, &n); },
           {vapp, USER_TYPE, arg(pin), arg(&n)}},
          {"SKF_ChangePIN",
           [&] { return SKF_ChangePIN(app, ADMIN_TYPE, pin, other, &n); },
           {vapp, ADMIN_TYPE, arg(pin), arg(other), arg(&n)}},
          {"SKF_UnblockPIN",
           [&] { return SKF_UnblockPIN(app, pin, other, &n); },
           {vapp, arg(pin), arg(other), arg(&n)}},
          {"SKF_GetPINInfo",
           [&] { return SKF_GetPINInfo(app, USER_TYPE, &n, &m, &b); },
           {vapp, USER_TYPE, arg(&n), arg(&m), arg(&b)}},
          {"SKF_GetSecureState", [&] { return SKF_GetSecureState(app, &n); }, {vapp, arg(&n)}},
          {"SKF_ClearSecureState", [&] { return SKF_ClearSecureState(app); }, {vapp}},
          {"SKF_EnumContainer", [&] { return SKF_EnumContainer(app, cname, &n); }, {vapp, arg(cname), arg(&n)}},
          {"SKF_DeleteContainer", [&] { return SKF_DeleteContainer(app, cname); }, {vapp, arg(cname)}},
          {"SKF_CreateContainer", [&] { return SKF_CreateContainer(app, cname, &out); }, {vapp, arg(cname)}},
          {"SKF_GetContainerType", [&] { return SKF_GetContainerType(container, &k); }, {vcon, arg(&k)}},
          {"SKF_ImportCertificate",
           [&] { return SKF_ImportCertificate(container, TRUE, buf, 16); },
           {vcon, 1, arg(buf), 16}},
          {"SKF_ExportCertificate",
           [&] { return SKF_ExportCertificate(container, FALSE, buf, &n); },
           {vcon, 0, arg(buf), arg(&n)}},
      },
      0x0B000500, &out);

  // Closing: the vendor's handle goes to the vendor; a refusal keeps ours usable.
  for (auto [name, handle, vendorHandle] :
       {std::make_tuple("SKF_CloseContainer", container, vcon), std::make_tuple("SKF_CloseApplication", app, vapp)}) {
    auto close = [&] {
      return std::string(name) == "SKF_CloseContainer" ? SKF_CloseContainer(handle) : SKF_CloseApplication(handle);
    };
    vendor_->answer(name, 0x0B000600);
    EXPECT_EQ(close(), 0x0B000600u) << name;
    vendor_->answer(name, SAR_OK);
    EXPECT_EQ(close(), kOk) << name;
    EXPECT_EQ(vendor_->last(name), Args{vendorHandle});
    EXPECT_EQ(close(), static_cast<ULONG>(SAR_INVALIDHANDLEERR)) << name;
  }
}

// Keys, hashes and MACs of a vendor device: records of ours around the vendor's handles.
TEST_F(VendorDevices, KeysHashesAndMacsUseTheVendorsHandles) {
  DEVHANDLE dev = connect("7#FIXTURE0");
  uint64_t vdev = vendor_handle();
  char text[] = "C";
  HAPPLICATION app = nullptr;
  HCONTAINER container = nullptr;
  ASSERT_EQ(SKF_OpenApplication(dev, text, &app), kOk);
  ASSERT_EQ(SKF_OpenContainer(app, text, &container), kOk);
  uint64_t vcon = vendor_->handle();
  BYTE buf[64] = {}, id[4] = {1, 2, 3, 4};
  ECCPUBLICKEYBLOB pub{};
  BLOCKCIPHERPARAM param{};
  HANDLE key = nullptr, imported = nullptr, hash = nullptr, mac = nullptr, none = nullptr;
  ASSERT_EQ(SKF_SetSymmKey(dev, buf, SGD_SMS4_CBC, &key), kOk);
  uint64_t vkey = vendor_->handle();
  EXPECT_EQ(vendor_->last("SKF_SetSymmKey").at(0), vdev);
  ASSERT_EQ(SKF_ImportSessionKey(container, SGD_SMS4_ECB, buf, 32, &imported), kOk);
  EXPECT_EQ(vendor_->last("SKF_ImportSessionKey"),
            (std::vector<uint64_t>{vcon, SGD_SMS4_ECB, arg(buf), 32, vendor_->last("SKF_ImportSessionKey").at(4)}));
  ASSERT_EQ(SKF_DigestInit(dev, SGD_SM3, &pub, id, 4, &hash), kOk);
  uint64_t vhash = vendor_->handle();
  EXPECT_EQ(vendor_->last("SKF_DigestInit"),
            (std::vector<uint64_t>{vdev, SGD_SM3, arg(&pub), arg(id), 4, vendor_->last("SKF_DigestInit").at(5)}));
  ASSERT_EQ(SKF_MacInit(key, &param, &mac), kOk);
  uint64_t vmac = vendor_->handle();
  EXPECT_EQ(vendor_->last("SKF_MacInit").at(0), vkey);
  for (auto [ours, theirs] : {std::make_pair(key, vkey), std::make_pair(hash, vhash), std::make_pair(mac, vmac)})
    EXPECT_NE(arg(ours), theirs);

  ULONG n = sizeof buf;
  using Args = std::vector<uint64_t>;
  expect_forwarded(
      {
          {"SKF_EncryptInit", [&] { return SKF_EncryptInit(key, param); }, {vkey}},
          {"SKF_Encrypt",
           [&] { return SKF_Encrypt(key, buf, 16, buf + 16, &n); },
           {vkey, arg(buf), 16, arg(buf + 16), arg(&n)}},
          {"SKF_EncryptUpdate",
           [&] { return SKF_EncryptUpdate(key, buf, 16, buf, &n); },
           {vkey, arg(buf), 16, arg(buf), arg(&n)}},
          {"SKF_EncryptFinal", [&] { return SKF_EncryptFinal(key, buf, &n); }, {vkey, arg(buf), arg(&n)}},
          {"SKF_DecryptInit", [&] { return SKF_DecryptInit(key, param); }, {vkey}},
          {"SKF_Decrypt", [&] { return SKF_Decrypt(key, buf, 16, buf, &n); }, {vkey, arg(buf), 16, arg(buf), arg(&n)}},
          {"SKF_DecryptUpdate",
           [&] { return SKF_DecryptUpdate(key, buf, 16, buf, &n); },
           {vkey, arg(buf), 16, arg(buf), arg(&n)}},
          {"SKF_DecryptFinal", [&] { return SKF_DecryptFinal(key, buf, &n); }, {vkey, arg(buf), arg(&n)}},
          {"SKF_Digest", [&] { return SKF_Digest(hash, buf, 16, buf, &n); }, {vhash, arg(buf), 16, arg(buf), arg(&n)}},
          {"SKF_DigestUpdate", [&] { return SKF_DigestUpdate(hash, buf, 16); }, {vhash, arg(buf), 16}},
          {"SKF_DigestFinal", [&] { return SKF_DigestFinal(hash, buf, &n); }, {vhash, arg(buf), arg(&n)}},
          {"SKF_Mac", [&] { return SKF_Mac(mac, buf, 16, buf, &n); }, {vmac, arg(buf), 16, arg(buf), arg(&n)}},
          {"SKF_MacUpdate", [&] { return SKF_MacUpdate(mac, buf, 16); }, {vmac, arg(buf), 16}},
          {"SKF_MacFinal", [&] { return SKF_MacFinal(mac, buf, &n); }, {vmac, arg(buf), arg(&n)}},
      },
      0x0B000700);
  // A handle the vendor gave out is closed again when ours cannot be made.
  vendor_->answer("SKF_SetSymmKey", 0x0B000800);
  none = nullptr;
  EXPECT_EQ(SKF_SetSymmKey(dev, buf, SGD_SMS4_CBC, &none), 0x0B000800u);
  EXPECT_EQ(none, nullptr);
  for (auto [ours, theirs] : {std::make_pair(mac, vmac), std::make_pair(hash, vhash), std::make_pair(key, vkey)}) {
    ASSERT_EQ(SKF_CloseHandle(ours), kOk);
    EXPECT_EQ(vendor_->last("SKF_CloseHandle"), Args{theirs});
  }
}

// A vendor type without the master file keeps its files itself: each file export is forwarded.
TEST_F(VendorDevices, FilesOfAVendorKeepingNamesAreForwarded) {
  std::string entry = vendor_entry(7);
  entry.insert(entry.size() - 1, R"(,"useMasterFile":false)");
  configure(R"({"devices":[)" + entry + "]}");
  DEVHANDLE dev = connect("7#FIXTURE0");
  char appName[] = "APP", name[] = "doc";
  HAPPLICATION app = nullptr;
  ASSERT_EQ(SKF_OpenApplication(dev, appName, &app), kOk);
  uint64_t vapp = vendor_->handle();
  BYTE buf[64] = {};
  ULONG n = sizeof buf;
  FILEATTRIBUTE info;
  expect_forwarded(
      {
          {"SKF_CreateFile",
           [&] { return SKF_CreateFile(app, name, 32, SECURE_USER_ACCOUNT, SECURE_ADM_ACCOUNT); },
           {vapp, arg(name), 32, SECURE_USER_ACCOUNT, SECURE_ADM_ACCOUNT}},
          {"SKF_WriteFile", [&] { return SKF_WriteFile(app, name, 4, buf, 16); }, {vapp, arg(name), 4, arg(buf), 16}},
          {"SKF_ReadFile",
           [&] { return SKF_ReadFile(app, name, 4, 16, buf, &n); },
           {vapp, arg(name), 4, 16, arg(buf), arg(&n)}},
          {"SKF_GetFileInfo", [&] { return SKF_GetFileInfo(app, name, &info); }, {vapp, arg(name), arg(&info)}},
          {"SKF_EnumFiles", [&] { return SKF_EnumFiles(app, reinterpret_cast<LPSTR>(buf), &n); },
           {vapp, arg(buf), arg(&n)}},
          {"SKF_DeleteFile", [&] { return SKF_DeleteFile(app, name); }, {vapp, arg(name)}},
      },
      0x0B000900);
  EXPECT_EQ(vendor_->file_trace().find("4361"), std::string::npos);
}

// RSA and SM2 exports of a vendor device reach the vendor with its device or container handle.
TEST_F(VendorDevices, AsymmetricExportsUseTheVendorsHandles) {
  DEVHANDLE dev = connect("7#FIXTURE0");
  uint64_t vdev = vendor_handle();
  char text[] = "C";
  HAPPLICATION app = nullptr;
  HCONTAINER c = nullptr;
  ASSERT_EQ(SKF_OpenApplication(dev, text, &app), kOk);
  ASSERT_EQ(SKF_OpenContainer(app, text, &c), kOk);
  uint64_t vcon = vendor_->handle();
  BYTE buf[64] = {};
  ULONG n = sizeof buf;
  HANDLE h = nullptr;
  Blobs b;
  // A whole cipher blob with its 16 cipher bytes: the library reads (and logs) what it announces.
  BYTE ctMemory[sizeof(ECCCIPHERBLOB) + 16] = {};
  auto* ct = reinterpret_cast<ECCCIPHERBLOB*>(ctMemory);
  ct->CipherLen = 16;
  expect_forwarded(
      {
          {"SKF_GenExtRSAKey", [&] { return SKF_GenExtRSAKey(dev, 1024, &b.rsaPriv); }, {vdev, 1024, arg(&b.rsaPriv)}},
          {"SKF_RSAVerify",
           [&] { return SKF_RSAVerify(dev, &b.rsaPub, buf, 16, buf, 32); },
           {vdev, arg(&b.rsaPub), arg(buf), 16, arg(buf), 32}},
          {"SKF_ExtRSAPubKeyOperation",
           [&] { return SKF_ExtRSAPubKeyOperation(dev, &b.rsaPub, buf, 16, buf, &n); },
           {vdev, arg(&b.rsaPub), arg(buf), 16, arg(buf), arg(&n)}},
          {"SKF_ExtRSAPriKeyOperation",
           [&] { return SKF_ExtRSAPriKeyOperation(dev, &b.rsaPriv, buf, 16, buf, &n); },
           {vdev, arg(&b.rsaPriv), arg(buf), 16, arg(buf), arg(&n)}},
          {"SKF_ECCVerify",
           [&] { return SKF_ECCVerify(dev, &b.eccPub, buf, 32, &b.sig); },
           {vdev, arg(&b.eccPub), arg(buf), 32, arg(&b.sig)}},
          {"SKF_ExtECCVerify",
           [&] { return SKF_ExtECCVerify(dev, &b.eccPub, buf, 32, &b.sig); },
           {vdev, arg(&b.eccPub), arg(buf), 32, arg(&b.sig)}},
          {"SKF_ExtECCEncrypt",
           [&] { return SKF_ExtECCEncrypt(dev, &b.eccPub, buf, 16, ct); },
           {vdev, arg(&b.eccPub), arg(buf), 16, arg(ct)}},
          {"SKF_ExtECCDecrypt",
           [&] { return SKF_ExtECCDecrypt(dev, &b.eccPriv, ct, buf, &n); },
           {vdev, arg(&b.eccPriv), arg(ct), arg(buf), arg(&n)}},
          {"SKF_ExtECCSign",
           [&] { return SKF_ExtECCSign(dev, &b.eccPriv, buf, 32, &b.sig); },
           {vdev, arg(&b.eccPriv), arg(buf), 32, arg(&b.sig)}},
          {"SKF_GenRSAKeyPair", [&] { return SKF_GenRSAKeyPair(c, 2048, &b.rsaPub); }, {vcon, 2048, arg(&b.rsaPub)}},
          {"SKF_ImportRSAKeyPair",
           [&] { return SKF_ImportRSAKeyPair(c, SGD_SMS4_ECB, buf, 16, buf + 16, 32); },
           {vcon, SGD_SMS4_ECB, arg(buf), 16, arg(buf + 16), 32}},
          {"SKF_RSASignData",
           [&] { return SKF_RSASignData(c, buf, 16, buf, &n); },
           {vcon, arg(buf), 16, arg(buf), arg(&n)}},
          {"SKF_RSAExportSessionKey",
           [&] { return SKF_RSAExportSessionKey(c, SGD_SMS4_ECB, &b.rsaPub, buf, &n, &h); },
           {vcon, SGD_SMS4_ECB, arg(&b.rsaPub), arg(buf), arg(&n), arg(&h)}},
          {"SKF_GenECCKeyPair",
           [&] { return SKF_GenECCKeyPair(c, SGD_SM2_1, &b.eccPub); },
           {vcon, SGD_SM2_1, arg(&b.eccPub)}},
          {"SKF_ImportECCKeyPair", [&] { return SKF_ImportECCKeyPair(c, &b.envelope); }, {vcon, arg(&b.envelope)}},
          {"SKF_ECCSignData", [&] { return SKF_ECCSignData(c, buf, 32, &b.sig); }, {vcon, arg(buf), 32, arg(&b.sig)}},
          {"SKF_ECCExportSessionKey",
           [&] { return SKF_ECCExportSessionKey(c, SGD_SMS4_ECB, &b.eccPub, ct, &h); },
           {vcon, SGD_SMS4_ECB, arg(&b.eccPub), arg(ct), arg(&h)}},
          {"SKF_ExportPublicKey", [&] { return SKF_ExportPublicKey(c, TRUE, buf, &n); }, {vcon, 1, arg(buf), arg(&n)}},
          // The vendor's agreement and key handles reach the caller unwrapped.
          {"SKF_GenerateAgreementDataWithECC",
           [&] { return SKF_GenerateAgreementDataWithECC(c, SGD_SMS4_ECB, &b.eccPub, buf, 16, &h); },
           {vcon, SGD_SMS4_ECB, arg(&b.eccPub), arg(buf), 16, arg(&h)}},
          {"SKF_GenerateAgreementDataAndKeyWithECC",
           [&] {
             return SKF_GenerateAgreementDataAndKeyWithECC(c, SGD_SMS4_ECB, &b.eccPub, &b.eccPub, &b.eccPub, buf, 16,
                                                           buf + 16, 16, &h);
           },
           {vcon, SGD_SMS4_ECB, arg(&b.eccPub), arg(&b.eccPub), arg(&b.eccPub), arg(buf), 16, arg(buf + 16), 16, arg(&h)}},
      },
      0x0B000900);
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
