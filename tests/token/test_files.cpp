// SKF files: the master file as stored, the checks, the rights against the PINs, repair, the
// vendor routes, and processes killed in the middle of creating files.
#include <chrono>
#include <cstring>
#include <functional>
#include <optional>
#include <random>
#include <thread>

#include "device_suite.h"
#include "vorel/vorel_crypto.h"

namespace device {
namespace {

using Names = std::vector<std::string>;
const std::string kName32(32, 'N');

// A name as the exports take it.
char* name_of(const std::string& name) { return const_cast<char*>(name.c_str()); }

// File exports on one application, whatever its route.
class FileCalls {
 public:
  HAPPLICATION app = nullptr;
  ULONG create(const std::string& name, ULONG size, ULONG readRights = SECURE_ANYONE_ACCOUNT,
               ULONG writeRights = SECURE_ANYONE_ACCOUNT) const {
    return SKF_CreateFile(app, name_of(name), size, readRights, writeRights);
  }
  ULONG remove(const std::string& name) const { return SKF_DeleteFile(app, name_of(name)); }
  ULONG write(const std::string& name, ULONG offset, const std::string& data) const {
    Bytes bytes(data.begin(), data.end());
    return SKF_WriteFile(app, name_of(name), offset, bytes.data(), static_cast<ULONG>(bytes.size()));
  }
  ULONG read(const std::string& name, ULONG offset, ULONG size, std::string* out = nullptr) const {
    Bytes buf(size + 1);
    ULONG len = size;
    ULONG rc = SKF_ReadFile(app, name_of(name), offset, size, buf.data(), &len);
    if (out) out->assign(buf.begin(), buf.begin() + (rc == SAR_OK ? len : 0));
    return rc;
  }
  ULONG info(const std::string& name, FILEATTRIBUTE* out) const { return SKF_GetFileInfo(app, name_of(name), out); }
  Names names() const {
    char list[512];
    ULONG size = sizeof list;
    EXPECT_EQ(SKF_EnumFiles(app, list, &size), kOk);
    return split_names(list, size);
  }
};

class Files : public DeviceTest, protected FileCalls {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    make_token(3, "F1");
    dev_ = connect("3#F1");
    char appName[] = "VOREL";
    ASSERT_EQ(SKF_OpenApplication(dev_, appName, &app), kOk);
  }
  void TearDown() override {
    if (token_) VorelPKICryptoFreeDevice(token_);
    DeviceTest::TearDown();
  }
  ULONG verify(ULONG type) {
    std::string pin = type == USER_TYPE ? kUserPin : kSoPin;
    ULONG retries = 0;
    return SKF_VerifyPIN(app, type, &pin[0], &retries);
  }
  // The token as the crypto library sees it, beside the library's own view.
  VOREL_DEVICE* token() {
    if (!token_) {
      EXPECT_EQ(VorelPKICryptoFindDevice(3, "F1", VOREL_ENUM_TOKENS, &token_), VOREL_OK);
    }
    return token_;
  }
  std::optional<Bytes> object(unsigned id) {
    std::size_t len = 0;
    if (VorelPKICryptoGetDataLength(token(), id, &len) != VOREL_OK) return std::nullopt;
    Bytes data(len);
    EXPECT_EQ(VorelPKICryptoReadData(token(), id, data.data(), len, &len), VOREL_OK);
    return data;
  }
  DEVHANDLE dev_ = nullptr;
  VOREL_DEVICE* token_ = nullptr;
};

TEST_F(Files, TheMasterFileIsMadeByTheFirstCreateAndHoldsOneRecordPerFileAsStored) {
  // A fresh token has neither files nor a master file, and makes one only for a logged-in user.
  auto log = log_file();
  ULONG size = 99;
  EXPECT_EQ(SKF_EnumFiles(app, nullptr, &size), kOk);
  EXPECT_EQ(size, 0u);
  EXPECT_NE(log.since().find("[WARN] [SKF_EnumFiles] Not exist master file"), std::string::npos);
  FILEATTRIBUTE attr;
  EXPECT_EQ(info("doc", &attr), static_cast<ULONG>(SAR_FILE_NOT_EXIST));
  EXPECT_NE(log.since().find("ReadMasterFile fail, error : -7"), std::string::npos);
  EXPECT_EQ(read("doc", 0, 1), static_cast<ULONG>(SAR_FILE_NOT_EXIST));
  EXPECT_EQ(create("doc", 300, SECURE_USER_ACCOUNT, SECURE_ANYONE_ACCOUNT), static_cast<ULONG>(SAR_USER_NOT_LOGGED_IN));
  EXPECT_FALSE(object(4361));

  ASSERT_EQ(verify(USER_TYPE), kOk);
  ASSERT_EQ(create("doc", 300, SECURE_USER_ACCOUNT, SECURE_ANYONE_ACCOUNT), kOk);
  ASSERT_EQ(create(kName32, 16, SECURE_ANYONE_ACCOUNT, SECURE_USER_ACCOUNT), kOk);
  std::optional<Bytes> master = object(4361);
  ASSERT_TRUE(master);
  ASSERT_EQ(master->size(), 304u);
  std::string expected = hex(bytes("doc")) + std::string(58, '0') + "012c001000ff" +  // slot 0
                         hex(bytes(kName32)) + "001000ff0010";                        // slot 1, no terminator
  EXPECT_EQ(hex(*master).substr(0, 2 * 76), expected);
  EXPECT_EQ(hex(*master).substr(2 * 76), std::string(2 * 228, '0'));
  EXPECT_EQ(object(4352).value_or(Bytes()).size(), 300u);
  EXPECT_EQ(object(4353).value_or(Bytes()).size(), 16u);

  // A name of 32 characters fills the attribute's field; its first 31 name no file.
  ASSERT_EQ(info(kName32, &attr), kOk);
  EXPECT_EQ(std::string(attr.FileName, sizeof attr.FileName), kName32);
  EXPECT_EQ(info(kName32.substr(0, 31), &attr), static_cast<ULONG>(SAR_FILE_NOT_EXIST));
  ASSERT_EQ(SKF_EnumFiles(app, nullptr, &size), kOk);
  EXPECT_EQ(size, 4u + 33u + 1u);  // the list ends with a second zero
  char list[64];
  size = 37;
  EXPECT_EQ(SKF_EnumFiles(app, list, &size), static_cast<ULONG>(SAR_BUFFER_TOO_SMALL));
  EXPECT_EQ(names(), (Names{"doc", kName32}));

  // Contents go to the slot's object at the offset.
  ASSERT_EQ(write("doc", 10, "hello"), kOk);
  Bytes contents = object(4352).value_or(Bytes(300));
  EXPECT_EQ(std::string(contents.begin() + 10, contents.begin() + 15), "hello");
}

TEST_F(Files, EveryCheckAnswersItsCodeAndLine) {
  ASSERT_EQ(verify(USER_TYPE), kOk);
  ASSERT_EQ(create("hundred", 100), kOk);
  const std::string name33(33, 'N');
  BYTE buf[16];
  ULONG small = 4;
  const struct {
    const char* what;
    std::function<ULONG()> call;
    ULONG code;
    const char* line;
  } cases[] = {
      {"8127 is reserved", [&] { return create("8127", 8); }, SAR_NAMELENERR, "Seal file name is not allowed"},
      {"8130 is reserved", [&] { return create("8130", 8); }, SAR_NAMELENERR, "Seal file name is not allowed"},
      {"8138 is reserved", [&] { return create("8138", 8); }, SAR_NAMELENERR, "Seal file name is not allowed"},
      {"by its leading digits", [&] { return create("8135.txt", 8); }, SAR_NAMELENERR, "Seal file name"},
      {"8128 is not", [&] { return create("8128", 8); }, kOk, nullptr},
      {"8129 is not", [&] { return create("8129", 8); }, kOk, nullptr},
      {"8139 is not", [&] { return create("8139", 8); }, kOk, nullptr},
      {"reading a reserved name", [&] { return read("8131", 0, 1); }, SAR_NAMELENERR, "Seal file name"},
      {"writing one", [&] { return write("8132", 0, "x"); }, SAR_NAMELENERR, "Seal file name"},
      {"deleting one", [&] { return remove("8133"); }, SAR_NAMELENERR, "Seal file name"},
      {"asking of one",
       [&] {
         FILEATTRIBUTE i;
         return info("8134", &i);
       },
       SAR_NAMELENERR, "Seal file name"},
      {"33 characters", [&] { return create(name33, 8); }, SAR_NAMELENERR, "Filename length too long"},
      {"no name", [&] { return create("", 8); }, SAR_NAMELENERR, "Filename is empty"},
      {"size 65536", [&] { return create("big", 65536); }, SAR_INVALIDPARAMERR, "ulFileSize > 65535"},
      {"read rights 0x100", [&] { return create("r", 8, 0x100); }, SAR_INVALIDPARAMERR, "ulReadRights error"},
      {"write rights 0x100", [&] { return create("w", 8, 0xFF, 0x100); }, SAR_INVALIDPARAMERR, "ulWriteRights error"},
      {"size 65535", [&] { return create("big", 65535); }, kOk, nullptr},
      {"a name twice", [&] { return create("hundred", 8); }, SAR_FILE_ALREADY_EXIST, "The file already exist"},
      {"an unknown name", [&] { return read("none", 0, 1); }, SAR_FILE_NOT_EXIST, "The file not exist"},
      {"deleting it", [&] { return remove("none"); }, SAR_FILE_NOT_EXIST, "The file not exist"},
      {"10 bytes at 95 of 100", [&] { return read("hundred", 95, 10); }, SAR_FILE_RANGE, "ulSize too long"},
      {"5 bytes at 95", [&] { return read("hundred", 95, 5); }, kOk, nullptr},
      {"writing 6 at 95", [&] { return write("hundred", 95, "abcdef"); }, SAR_FILE_RANGE, "ulSize too long"},
      {"an offset past 2^32", [&] { return write("hundred", 0xFFFFFFFFu, "a"); }, SAR_FILE_RANGE, "ulSize too long"},
      {"more than the buffer holds", [&] { return SKF_ReadFile(app, name_of("hundred"), 0, 8, buf, &small); },
       SAR_BUFFER_TOO_SMALL, nullptr},
  };
  for (const auto& c : cases) {
    auto log = log_file();
    EXPECT_EQ(c.call(), c.code) << c.what;
    if (c.line) {
      EXPECT_NE(log.since().find(c.line), std::string::npos) << c.what << ": " << c.line;
    }
  }
  EXPECT_EQ(names(), (Names{"hundred", "8128", "8129", "8139", "big"}));
}

TEST_F(Files, RightsFollowThePinsVerifiedThroughTheApplication) {
  ASSERT_EQ(verify(USER_TYPE), kOk);
  const struct {
    const char* name;
    ULONG rights;
    const char* refused;  // the line of a refusal
  } files[] = {{"user", SECURE_USER_ACCOUNT, "not verify user pin"},
               {"admin", SECURE_ADM_ACCOUNT, "not verify so pin"},
               {"anyone", SECURE_ANYONE_ACCOUNT, nullptr},
               {"other", 0x02, nullptr}};
  for (const auto& f : files) ASSERT_EQ(create(f.name, 8, f.rights, f.rights), kOk) << f.name;

  constexpr ULONG N = SAR_USER_NOT_LOGGED_IN;
  // Reading and writing each file in each state. Rights ask for the application's PIN flags
  // (verifying one PIN clears the other's); writing also needs the token's own login, which a
  // cleared secure state ends.
  const struct {
    const char* state;
    std::function<void()> enter;
    ULONG read[4], write[4];
  } states[] = {
      {"nothing verified", [&] { ASSERT_EQ(SKF_ClearSecureState(app), kOk); }, {N, N, kOk, kOk}, {N, N, N, N}},
      {"user PIN", [&] { ASSERT_EQ(verify(USER_TYPE), kOk); }, {kOk, N, kOk, kOk}, {kOk, N, kOk, kOk}},
      {"administrator PIN", [&] { ASSERT_EQ(verify(ADMIN_TYPE), kOk); }, {N, kOk, kOk, kOk}, {N, kOk, kOk, kOk}},
  };
  for (const auto& s : states) {
    s.enter();
    for (int i = 0; i < 4; ++i) {
      auto log = log_file();
      EXPECT_EQ(read(files[i].name, 0, 8), s.read[i]) << s.state << ", reading " << files[i].name;
      EXPECT_EQ(write(files[i].name, 0, "12345678"), s.write[i]) << s.state << ", writing " << files[i].name;
      if (files[i].refused && s.read[i] == N) {
        EXPECT_NE(log.since().find(files[i].refused), std::string::npos) << s.state;
      }
    }
  }
  // Deleting asks for the write rights.
  EXPECT_EQ(remove("user"), N);
  ASSERT_EQ(verify(USER_TYPE), kOk);
  EXPECT_EQ(remove("admin"), N);
  EXPECT_EQ(remove("user"), kOk);
  EXPECT_EQ(names(), (Names{"admin", "anyone", "other"}));
}

TEST_F(Files, EightSlotsWhoseRecordsAndContentsAreTidiedAtTheNextCall) {
  ASSERT_EQ(verify(USER_TYPE), kOk);
  for (int i = 0; i < 8; ++i) ASSERT_EQ(create("f" + std::to_string(i), 10), kOk) << i;
  auto log = log_file();
  EXPECT_EQ(create("f8", 10), static_cast<ULONG>(SAR_FILE_NOT_RECORDED));
  EXPECT_NE(log.since().find("Not find empty room"), std::string::npos);
  EXPECT_EQ(create("f3", 10), static_cast<ULONG>(SAR_FILE_ALREADY_EXIST));  // a name held wins over a full table
  ASSERT_EQ(remove("f5"), kOk);
  EXPECT_FALSE(object(4352 + 5));

  // Contents deleted behind our back: their record goes at the next call.
  unsigned retries = 0;
  ASSERT_EQ(VorelPKICryptoVerifyPwd(token(), VOREL_PWD_USER, kUserPin, &retries), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoDeleteData(token(), 4352 + 3), VOREL_OK);
  EXPECT_EQ(names(), (Names{"f0", "f1", "f2", "f4", "f6", "f7"}));
  EXPECT_NE(log.since().find("VorelPKICryptoGetDataLength fail, error : -7"), std::string::npos);
  Bytes master = object(4361).value_or(Bytes(304, 1));
  EXPECT_EQ(hex(Bytes(master.begin() + 3 * 38, master.begin() + 4 * 38)), std::string(76, '0'));

  // Contents no record names (a create that died before its record): the slot is taken anyway.
  const unsigned char access[4] = {4, 3, 7, 3};
  ASSERT_EQ(VorelPKICryptoCreateData(token(), 4352 + 3, access, 7), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoWriteData(token(), 4352 + 3, reinterpret_cast<const unsigned char*>("stale!!"), 7), VOREL_OK);
  ASSERT_EQ(create("e", 50), kOk);
  ASSERT_EQ(create("f8", 20), kOk);
  EXPECT_EQ(object(4352 + 3), Bytes(50, 0));
  EXPECT_EQ(object(4352 + 5).value_or(Bytes()).size(), 20u);
  EXPECT_EQ(names(), (Names{"f0", "f1", "f2", "e", "f4", "f8", "f6", "f7"}));
}

TEST_F(Files, WithoutTheMasterFileATokenHoldsNoFiles) {
  configure(R"({"devices":[{"name":"EMULATED","type":3,"useMasterFile":false}]})");
  ASSERT_EQ(verify(USER_TYPE), kOk);
  FILEATTRIBUTE i;
  ULONG size = 0;
  const std::function<ULONG()> calls[] = {
      [&] { return create("doc", 8); },     [&] { return remove("doc"); },
      [&] { return write("doc", 0, "x"); }, [&] { return read("doc", 0, 1); },
      [&] { return info("doc", &i); },      [&] { return SKF_EnumFiles(app, nullptr, &size); }};
  for (const auto& call : calls) {
    auto log = log_file();
    EXPECT_EQ(call(), static_cast<ULONG>(SAR_NOT_EMULATED));
    EXPECT_NE(log.since().find("Not use master file and not support skf, hhis function cannot be implemented"),
              std::string::npos);
  }
  EXPECT_FALSE(object(4361));
}

// The master file over a vendor's own SKF files.
class VendorFiles : public DeviceTest, protected FileCalls {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    configure(R"({"devices":[)" + vendor_entry(7) + "]}");
    vendor_ = std::make_unique<testsupport::Recorder>(testsupport::module_path(VENDOR_FIXTURE));
    DEVHANDLE dev = connect("7#FIXTURE0");
    char appName[] = "APP";
    ASSERT_EQ(SKF_OpenApplication(dev, appName, &app), kOk);
    vapp_ = vendor_->handle();
  }
  // The file calls that reached the vendor since the last look.
  std::string trace() {
    std::string all = vendor_->file_trace();
    std::string fresh = all.substr(seen_);
    seen_ = all.size();
    return fresh;
  }
  std::unique_ptr<testsupport::Recorder> vendor_;
  uint64_t vapp_ = 0;
  std::size_t seen_ = 0;
};

TEST_F(VendorFiles, TheMasterFileAndContentsAreTheVendorsFiles) {
  const std::string readMaster = "Read 4361 0 304 304\n";
  ASSERT_EQ(create("doc", 100, SECURE_USER_ACCOUNT, SECURE_ANYONE_ACCOUNT), kOk);
  EXPECT_EQ(trace(), readMaster + "Create 4361 304 255 255\nWrite 4361 0 304 0\nCreate 4352 100 255 255\n" +
                         "Write 4361 0 38 0\n");
  EXPECT_EQ(vendor_->last("SKF_CreateFile").at(0), vapp_);
  EXPECT_EQ(vendor_->last("SKF_WriteFile").at(0), vapp_);
  ASSERT_EQ(create("two", 10), kOk);
  EXPECT_EQ(trace(), readMaster + "Create 4353 10 255 255\nWrite 4361 38 38 0\n");

  ASSERT_EQ(write("two", 2, "xyz"), kOk);
  EXPECT_EQ(trace(), readMaster + "Write 4353 2 3 0\n");
  std::string got;
  ASSERT_EQ(read("two", 1, 4, &got), kOk);
  EXPECT_EQ(trace(), readMaster + "Read 4353 1 4 4\n");
  EXPECT_EQ(got, std::string("\0xyz", 4));
  EXPECT_EQ(vendor_->last("SKF_ReadFile").at(0), vapp_);
  // A length beyond what the buffer holds never reaches the caller.
  vendor_->read_reports_file_size(true);
  auto overclaim = log_file();
  EXPECT_EQ(read("two", 1, 4), static_cast<ULONG>(SAR_FAIL));
  EXPECT_NE(overclaim.since().find("the vendor read 10 bytes into a buffer of 4"), std::string::npos);
  vendor_->read_reports_file_size(false);
  EXPECT_EQ(read("doc", 0, 4), static_cast<ULONG>(SAR_USER_NOT_LOGGED_IN));
  EXPECT_EQ(names(), (Names{"doc", "two"}));
  FILEATTRIBUTE i;
  ASSERT_EQ(info("doc", &i), kOk);
  EXPECT_EQ(i.FileSize, 100u);
  EXPECT_EQ(i.ReadRights, static_cast<ULONG>(SECURE_USER_ACCOUNT));
  trace();

  ASSERT_EQ(remove("doc"), kOk);
  EXPECT_EQ(trace(), readMaster + "Delete 4352\nWrite 4361 0 38 0\n");
  Bytes master = vendor_->file("4361").value_or(Bytes(304, 1));
  EXPECT_EQ(hex(Bytes(master.begin(), master.begin() + 38)), std::string(76, '0'));

  // A record that cannot be written takes its contents back with it.
  vendor_->answer("SKF_WriteFile", 0x0B000001);
  auto log = log_file();
  EXPECT_EQ(create("three", 10), 0x0B000001u);
  EXPECT_NE(log.since().find("roll back, delete file"), std::string::npos);
  EXPECT_EQ(trace(), readMaster + "Create 4352 10 255 255\nDelete 4352\n");
}

// Other processes on the same token, killed at any instant.
TEST_F(Files, ProcessesKilledAtAnyInstantLeaveEveryRecordWholeAndNoSlotBlocked) {
  ASSERT_EQ(verify(USER_TYPE), kOk);  // dropping a record a killed delete left writes the master file
  // The master file exists before the first child, however early that one is killed (a slow,
  // instrumented child may not have made it yet).
  ASSERT_EQ(create("first", 1), kOk);
  ASSERT_EQ(remove("first"), kOk);
  std::string dir = testsupport::make_temp_dir("files");
  testsupport::ScopedEnv childLog("VOREL_SKF_LOG_PATH", (dir + "child.log").c_str());
  testsupport::ScopedEnv quiet("VOREL_SKF_LOG_LEVEL", "1");
  std::mt19937 rng(20261123);
  for (int trial = 0; trial < 200; ++trial) {
    std::string ready = dir + "ready" + std::to_string(trial);
    testsupport::Child churn(testsupport::module_path(FILE_CHILD),
                             {"churn", "F1", kUserPin, std::to_string(rng()), ready});
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!testsupport::file_exists(ready) && churn.running() && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::this_thread::sleep_for(std::chrono::microseconds(rng() % 20000));
    ASSERT_TRUE(churn.running()) << "trial " << trial << ": the child ended with " << churn.wait();
    churn.kill();
    churn.wait();
    // The files as this process finds them: each listed one answers its recorded size and reads whole.
    for (const std::string& name : names()) {
      FILEATTRIBUTE i;
      ASSERT_EQ(info(name, &i), kOk) << "trial " << trial << ": " << name;
      ASSERT_EQ(read(name, 0, i.FileSize), kOk) << "trial " << trial << ": " << name;
    }
  }
  // Every slot can still be had, whatever the killed creates left behind.
  for (const std::string& name : names()) ASSERT_EQ(remove(name), kOk) << name;
  for (int i = 0; i < 8; ++i) ASSERT_EQ(create("last" + std::to_string(i), 100), kOk) << i;
}

}  // namespace
}  // namespace device
