// Every export against handles that are not what it expects: random values, closed handles of
// every kind, and live handles of every other kind, on the emulated and the vendor route. Each
// must get the export's documented answer and nothing may crash; the live handles must come out
// of it untouched. VOREL_HANDLE_CALLS sets how many random calls each route makes (docs/handles.md).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "device_suite.h"
#include "vorel/vorel_crypto.h"

namespace device {
namespace {

// What an export looks up first.
enum Kind { kDevice, kApplication, kContainer, kKey, kHash, kMac, kKinds, kAnyGeneric, kNone };
const char* const kKindNames[kKinds] = {"device", "application", "container", "session key", "hash", "MAC"};

bool generic(int kind) { return kind == kKey || kind == kHash || kind == kMac; }

struct Row {
  const char* name;
  int slot;
  std::function<ULONG(HANDLE)> call;
  ULONG fixed = 0;  // kNone rows: what they answer whatever the handles around
};

// A handle to pass, and what it is.
struct Bad {
  HANDLE h;
  int kind;  // kKinds + 0: a random value; else the kind of a live (or closed) handle
  bool closed;
};

// The answer an export gives a handle that is not a live one of its kind: a live generic handle
// (session key, hash, MAC) of another generic kind is SAR_FAIL, anything else
// SAR_INVALIDHANDLEERR (docs/handles.md).
ULONG expected(const Row& row, const Bad& bad) {
  if (row.slot == kNone) return row.fixed;
  if (!bad.closed && generic(row.slot) && generic(bad.kind) && bad.kind != row.slot) return SAR_FAIL;
  return SAR_INVALIDHANDLEERR;
}

// Arguments valid in everything but the handle, so that each call gets as far as its lookup.
struct Args : Blobs {
  BYTE in[256] = {}, out[4096] = {};
  ULONG len = 0, a = 0, b = 0;
  BOOL flag = FALSE;
  HANDLE made = nullptr;
  DEVINFO info{};
  FILEATTRIBUTE attr{};
  BLOCKCIPHERPARAM param{};
  BYTE cipherBlob[sizeof(ECCCIPHERBLOB) + 64] = {};
  char text[64] = "f", pin[16] = "12345678", other[16] = "87654321", app[8] = "VOREL", container[4] = "C";
  char badName[16] = "nonsense", badPath[32] = "/nonexistent/vorelskf.json", badJson[16] = "{not json";

  Args() {
    rsaPub.BitLen = 1024;
    eccPub.BitLen = 256;
    param.IVLen = 16;
    reinterpret_cast<ECCCIPHERBLOB*>(cipherBlob)->CipherLen = 16;
  }
  ECCCIPHERBLOB* ct() { return reinterpret_cast<ECCCIPHERBLOB*>(cipherBlob); }
  ULONG* room() {
    len = sizeof out;
    return &len;
  }
};

std::vector<Row> every_export(Args& x) {
  return {
      {"SKF_WaitForDevEvent", kNone, [&](HANDLE) { return SKF_WaitForDevEvent(x.text, x.room(), &x.a); },
       SAR_NOT_EMULATED},
      {"SKF_CancelWaitForDevEvent", kNone, [&](HANDLE) { return SKF_CancelWaitForDevEvent(); }, SAR_NOT_EMULATED},
      {"SKF_EnumDev", kNone, [&](HANDLE) { return SKF_EnumDev(FALSE, nullptr, &x.len); }, SAR_OK},
      {"SKF_ConnectDev", kNone, [&](HANDLE) { return SKF_ConnectDev(x.badName, &x.made); }, SAR_INVALIDPARAMERR},
      {"SKF_DisConnectDev", kDevice, [&](HANDLE h) { return SKF_DisConnectDev(h); }},
      {"SKF_GetDevState", kNone, [&](HANDLE) { return SKF_GetDevState(x.badName, &x.a); }, SAR_INVALIDPARAMERR},
      {"SKF_SetLabel", kDevice, [&](HANDLE h) { return SKF_SetLabel(h, x.text); }},
      {"SKF_GetDevInfo", kDevice, [&](HANDLE h) { return SKF_GetDevInfo(h, &x.info); }},
      {"SKF_LockDev", kDevice, [&](HANDLE h) { return SKF_LockDev(h, 0); }},
      {"SKF_UnlockDev", kDevice, [&](HANDLE h) { return SKF_UnlockDev(h); }},
      {"SKF_Transmit", kDevice, [&](HANDLE h) { return SKF_Transmit(h, x.in, 4, x.out, x.room()); }},
      {"SKF_ChangeDevAuthKey", kDevice, [&](HANDLE h) { return SKF_ChangeDevAuthKey(h, x.in, 16); }},
      {"SKF_DevAuth", kDevice, [&](HANDLE h) { return SKF_DevAuth(h, x.in, 16); }},
      {"SKF_ChangePIN", kApplication, [&](HANDLE h) { return SKF_ChangePIN(h, USER_TYPE, x.pin, x.pin, &x.a); }},
      {"SKF_GetPINInfo", kApplication, [&](HANDLE h) { return SKF_GetPINInfo(h, USER_TYPE, &x.a, &x.b, &x.flag); }},
      {"SKF_VerifyPIN", kApplication, [&](HANDLE h) { return SKF_VerifyPIN(h, USER_TYPE, x.pin, &x.a); }},
      {"SKF_UnblockPIN", kApplication, [&](HANDLE h) { return SKF_UnblockPIN(h, x.other, x.pin, &x.a); }},
      {"SKF_ClearSecureState", kApplication, [&](HANDLE h) { return SKF_ClearSecureState(h); }},
      {"SKF_GetSecureState", kApplication, [&](HANDLE h) { return SKF_GetSecureState(h, &x.a); }},
      {"SKF_CreateApplication", kDevice,
       [&](HANDLE h) { return SKF_CreateApplication(h, x.text, x.other, 6, x.pin, 6, 0xFF, &x.made); }},
      {"SKF_EnumApplication", kDevice, [&](HANDLE h) { return SKF_EnumApplication(h, nullptr, &x.len); }},
      {"SKF_DeleteApplication", kDevice, [&](HANDLE h) { return SKF_DeleteApplication(h, x.text); }},
      {"SKF_OpenApplication", kDevice, [&](HANDLE h) { return SKF_OpenApplication(h, x.app, &x.made); }},
      {"SKF_CloseApplication", kApplication, [&](HANDLE h) { return SKF_CloseApplication(h); }},
      {"SKF_CreateFile", kApplication, [&](HANDLE h) { return SKF_CreateFile(h, x.text, 16, 0xFF, 0xFF); }},
      {"SKF_DeleteFile", kApplication, [&](HANDLE h) { return SKF_DeleteFile(h, x.text); }},
      {"SKF_EnumFiles", kApplication, [&](HANDLE h) { return SKF_EnumFiles(h, nullptr, &x.len); }},
      {"SKF_GetFileInfo", kApplication, [&](HANDLE h) { return SKF_GetFileInfo(h, x.text, &x.attr); }},
      {"SKF_ReadFile", kApplication, [&](HANDLE h) { return SKF_ReadFile(h, x.text, 0, 16, x.out, x.room()); }},
      {"SKF_WriteFile", kApplication, [&](HANDLE h) { return SKF_WriteFile(h, x.text, 0, x.in, 16); }},
      {"SKF_CreateContainer", kApplication, [&](HANDLE h) { return SKF_CreateContainer(h, x.text, &x.made); }},
      {"SKF_DeleteContainer", kApplication, [&](HANDLE h) { return SKF_DeleteContainer(h, x.text); }},
      {"SKF_OpenContainer", kApplication, [&](HANDLE h) { return SKF_OpenContainer(h, x.container, &x.made); }},
      {"SKF_CloseContainer", kContainer, [&](HANDLE h) { return SKF_CloseContainer(h); }},
      {"SKF_EnumContainer", kApplication, [&](HANDLE h) { return SKF_EnumContainer(h, nullptr, &x.len); }},
      {"SKF_GetContainerType", kContainer, [&](HANDLE h) { return SKF_GetContainerType(h, &x.a); }},
      {"SKF_ImportCertificate", kContainer, [&](HANDLE h) { return SKF_ImportCertificate(h, TRUE, x.in, 16); }},
      {"SKF_ExportCertificate", kContainer,
       [&](HANDLE h) { return SKF_ExportCertificate(h, TRUE, nullptr, x.room()); }},
      {"SKF_GenRandom", kDevice, [&](HANDLE h) { return SKF_GenRandom(h, x.out, 16); }},
      {"SKF_GenExtRSAKey", kDevice, [&](HANDLE h) { return SKF_GenExtRSAKey(h, 1024, &x.rsaPriv); }},
      {"SKF_GenRSAKeyPair", kContainer, [&](HANDLE h) { return SKF_GenRSAKeyPair(h, 1024, &x.rsaPub); }},
      {"SKF_ImportRSAKeyPair", kContainer,
       [&](HANDLE h) { return SKF_ImportRSAKeyPair(h, SGD_SMS4_ECB, x.in, 16, x.in, 16); }},
      {"SKF_RSASignData", kContainer, [&](HANDLE h) { return SKF_RSASignData(h, x.in, 16, x.out, x.room()); }},
      {"SKF_RSAVerify", kDevice, [&](HANDLE h) { return SKF_RSAVerify(h, &x.rsaPub, x.in, 16, x.in, 128); }},
      {"SKF_RSAExportSessionKey", kContainer,
       [&](HANDLE h) { return SKF_RSAExportSessionKey(h, SGD_SMS4_ECB, &x.rsaPub, x.out, x.room(), &x.made); }},
      {"SKF_ExtRSAPubKeyOperation", kDevice,
       [&](HANDLE h) { return SKF_ExtRSAPubKeyOperation(h, &x.rsaPub, x.in, 128, x.out, x.room()); }},
      {"SKF_ExtRSAPriKeyOperation", kDevice,
       [&](HANDLE h) { return SKF_ExtRSAPriKeyOperation(h, &x.rsaPriv, x.in, 128, x.out, x.room()); }},
      {"SKF_GenECCKeyPair", kContainer, [&](HANDLE h) { return SKF_GenECCKeyPair(h, SGD_SM2_1, &x.eccPub); }},
      {"SKF_ImportECCKeyPair", kContainer, [&](HANDLE h) { return SKF_ImportECCKeyPair(h, &x.envelope); }},
      {"SKF_ECCSignData", kContainer, [&](HANDLE h) { return SKF_ECCSignData(h, x.in, 32, &x.sig); }},
      {"SKF_ECCVerify", kDevice, [&](HANDLE h) { return SKF_ECCVerify(h, &x.eccPub, x.in, 32, &x.sig); }},
      {"SKF_ECCExportSessionKey", kContainer,
       [&](HANDLE h) { return SKF_ECCExportSessionKey(h, SGD_SMS4_ECB, &x.eccPub, x.ct(), &x.made); }},
      {"SKF_ExtECCEncrypt", kDevice, [&](HANDLE h) { return SKF_ExtECCEncrypt(h, &x.eccPub, x.in, 16, x.ct()); }},
      {"SKF_ExtECCDecrypt", kDevice,
       [&](HANDLE h) { return SKF_ExtECCDecrypt(h, &x.eccPriv, x.ct(), x.out, x.room()); }},
      {"SKF_ExtECCSign", kDevice, [&](HANDLE h) { return SKF_ExtECCSign(h, &x.eccPriv, x.in, 32, &x.sig); }},
      {"SKF_ExtECCVerify", kDevice, [&](HANDLE h) { return SKF_ExtECCVerify(h, &x.eccPub, x.in, 32, &x.sig); }},
      {"SKF_GenerateAgreementDataWithECC", kContainer,
       [&](HANDLE h) { return SKF_GenerateAgreementDataWithECC(h, SGD_SMS4_ECB, &x.eccPub, x.in, 16, &x.made); }},
      {"SKF_GenerateAgreementDataAndKeyWithECC", kContainer,
       [&](HANDLE h) {
         return SKF_GenerateAgreementDataAndKeyWithECC(h, SGD_SMS4_ECB, &x.eccPub, &x.eccPub, &x.eccPub, x.in, 16,
                                                       x.in, 16, &x.made);
       }},
      {"SKF_GenerateKeyWithECC", kNone,
       [&](HANDLE h) { return SKF_GenerateKeyWithECC(h, &x.eccPub, &x.eccPub, x.in, 16, &x.made); }, SAR_NOT_EMULATED},
      {"SKF_ExportPublicKey", kContainer, [&](HANDLE h) { return SKF_ExportPublicKey(h, TRUE, x.out, x.room()); }},
      {"SKF_RSADecrypt", kContainer, [&](HANDLE h) { return SKF_RSADecrypt(h, FALSE, x.in, 128, x.out, x.room()); }},
      {"SKF_ECCDecrypt", kContainer, [&](HANDLE h) { return SKF_ECCDecrypt(h, FALSE, x.ct(), x.out, x.room()); }},
      {"SKFEX_ECCDecrypt", kContainer, [&](HANDLE h) { return SKFEX_ECCDecrypt(h, 1, x.ct(), x.out, x.room()); }},
      {"SKFEX_RSADecrypt", kContainer, [&](HANDLE h) { return SKFEX_RSADecrypt(h, x.in, 128, x.out, x.room(), 1); }},
      {"SKF_ImportSessionKey", kContainer,
       [&](HANDLE h) { return SKF_ImportSessionKey(h, SGD_SMS4_ECB, x.in, 16, &x.made); }},
      {"SKF_SetSymmKey", kDevice, [&](HANDLE h) { return SKF_SetSymmKey(h, x.in, SGD_SMS4_ECB, &x.made); }},
      {"SKF_EncryptInit", kKey, [&](HANDLE h) { return SKF_EncryptInit(h, x.param); }},
      {"SKF_Encrypt", kKey, [&](HANDLE h) { return SKF_Encrypt(h, x.in, 16, x.out, x.room()); }},
      {"SKF_EncryptUpdate", kKey, [&](HANDLE h) { return SKF_EncryptUpdate(h, x.in, 16, x.out, x.room()); }},
      {"SKF_EncryptFinal", kKey, [&](HANDLE h) { return SKF_EncryptFinal(h, x.out, x.room()); }},
      {"SKF_DecryptInit", kKey, [&](HANDLE h) { return SKF_DecryptInit(h, x.param); }},
      {"SKF_Decrypt", kKey, [&](HANDLE h) { return SKF_Decrypt(h, x.in, 16, x.out, x.room()); }},
      {"SKF_DecryptUpdate", kKey, [&](HANDLE h) { return SKF_DecryptUpdate(h, x.in, 16, x.out, x.room()); }},
      {"SKF_DecryptFinal", kKey, [&](HANDLE h) { return SKF_DecryptFinal(h, x.out, x.room()); }},
      {"SKF_DigestInit", kDevice, [&](HANDLE h) { return SKF_DigestInit(h, SGD_SM3, nullptr, nullptr, 0, &x.made); }},
      {"SKF_Digest", kHash, [&](HANDLE h) { return SKF_Digest(h, x.in, 16, x.out, x.room()); }},
      {"SKF_DigestUpdate", kHash, [&](HANDLE h) { return SKF_DigestUpdate(h, x.in, 16); }},
      {"SKF_DigestFinal", kHash, [&](HANDLE h) { return SKF_DigestFinal(h, x.out, x.room()); }},
      {"SKF_MacInit", kKey, [&](HANDLE h) { return SKF_MacInit(h, &x.param, &x.made); }},
      {"SKF_Mac", kMac, [&](HANDLE h) { return SKF_Mac(h, x.in, 16, x.out, x.room()); }},
      {"SKF_MacUpdate", kMac, [&](HANDLE h) { return SKF_MacUpdate(h, x.in, 16); }},
      {"SKF_MacFinal", kMac, [&](HANDLE h) { return SKF_MacFinal(h, x.out, x.room()); }},
      {"SKF_CloseHandle", kAnyGeneric, [&](HANDLE h) { return SKF_CloseHandle(h); }},
      {"SKF_LoadConfigurationWithPath", kNone, [&](HANDLE) { return SKF_LoadConfigurationWithPath(x.badPath); },
       SAR_FAIL},
      {"SKF_LoadConfigurationWithContent", kNone,
       [&](HANDLE) { return SKF_LoadConfigurationWithContent(x.badJson); }, SAR_FAIL},
  };
}

// One live handle of each kind.
struct HandleSet {
  HANDLE h[kKinds] = {};
};

class HandleSafety : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    configure(R"({"devices":[{"name":"EMULATED","type":3},)" + vendor_entry(7) + "]}");
    make_token(3, "H1", "token", {{"s1", VOREL_KEYPAIR_SIGN, "C", "s1"}, {"s2", VOREL_KEYPAIR_ENCRYPT, "C", "s2"}});
    vendor_ = std::make_unique<testsupport::Recorder>(testsupport::module_path(VENDOR_FIXTURE));
  }

  // A device of the route and one handle of each kind under it.
  HandleSet open_set(bool vendor) {
    HandleSet s;
    s.h[kDevice] = connect(vendor ? "7#FIXTURE0" : "3#H1");
    char app[] = "VOREL", container[] = "C";
    EXPECT_EQ(SKF_OpenApplication(s.h[kDevice], app, &s.h[kApplication]), kOk);
    EXPECT_EQ(SKF_OpenContainer(s.h[kApplication], container, &s.h[kContainer]), kOk);
    BYTE key[32] = {1, 2, 3};
    EXPECT_EQ(SKF_SetSymmKey(s.h[kDevice], key, SGD_SMS4_CBC, &s.h[kKey]), kOk);
    EXPECT_EQ(SKF_DigestInit(s.h[kDevice], SGD_SM3, nullptr, nullptr, 0, &s.h[kHash]), kOk);
    BLOCKCIPHERPARAM param{};
    param.IVLen = 16;
    EXPECT_EQ(SKF_MacInit(s.h[kKey], &param, &s.h[kMac]), kOk);
    return s;
  }

  // Closes a handle of whatever kind it is (the other kinds' exports refuse it untouched), children
  // first: a parent's close leaves them open, and a live leftover must not meet a random handle.
  static void close_any(HANDLE h) {
    if (h && SKF_CloseHandle(h) != kOk && SKF_CloseContainer(h) != kOk && SKF_CloseApplication(h) != kOk)
      SKF_DisConnectDev(h);
  }
  static void close_set(const HandleSet& s) {
    for (int k = kMac; k >= kDevice; --k) close_any(s.h[k]);
  }

  // Closed handles of every kind, each closed by its own export (closing a parent leaves its
  // children open: test_applications.cpp).
  std::vector<Bad> closed_handles(bool vendor) {
    std::vector<Bad> closed;
    HandleSet direct = open_set(vendor);
    for (int k = kMac; k >= kDevice; --k) {
      if (!direct.h[k]) continue;
      ULONG rc = k == kDevice ? SKF_DisConnectDev(direct.h[k])
                 : k == kApplication ? SKF_CloseApplication(direct.h[k])
                 : k == kContainer   ? SKF_CloseContainer(direct.h[k])
                                     : SKF_CloseHandle(direct.h[k]);
      EXPECT_EQ(rc, kOk) << kKindNames[k];
    }
    for (int k = kDevice; k < kKinds; ++k)
      if (direct.h[k]) closed.push_back({direct.h[k], k, true});
    return closed;
  }

  // Every row answers each bad handle as documented; the vendor never sees the call. Returns the
  // number of calls made; failures are counted, the first few described.
  struct Tally {
    uint64_t calls = 0, wrong = 0;
    std::string first;
    void miss(const std::string& what) {
      if (++wrong <= 20) first += what + "\n";
    }
  };
  void check(const Row& row, const Bad& bad, bool vendor, Tally& t) {
    int before = vendor ? vendor_->calls(row.name) : 0;
    ULONG got = row.call(bad.h);
    ++t.calls;
    ULONG want = expected(row, bad);
    bool reached = vendor && row.slot != kNone && vendor_->calls(row.name) != before;
    if (got == want && !reached) return;
    char what[256];
    std::snprintf(what, sizeof what, "%s(%s%s %p): 0x%08lx, expected 0x%08lx%s", row.name, bad.closed ? "closed " : "",
                  bad.kind < kKinds ? kKindNames[bad.kind] : "random", bad.h, static_cast<unsigned long>(got),
                  static_cast<unsigned long>(want), reached ? ", and the vendor was called" : "");
    t.miss(what);
  }

  // A random value that is no live handle: anywhere, small, near a live record, or one of the
  // vendor's own handle values.
  HANDLE random_handle(std::mt19937_64& rng, const std::vector<HANDLE>& near, const std::set<HANDLE>& live) {
    for (;;) {
      uint64_t v = rng();
      switch (v % 4) {
        case 0:
          break;
        case 1:
          v = (v >> 8) % 0x10000;
          break;
        case 2:
          v = reinterpret_cast<uintptr_t>(near[(v >> 8) % near.size()]) + ((v >> 24) % 0x20000) - 0x10000;
          break;
        default:
          v = 0x7E000000u + (v >> 8) % 0x400;  // the recording module's handle values
      }
      HANDLE h = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(v));
      if (h && !live.count(h)) return h;
    }
  }

  void run_route(bool vendor) {
    Args args;
    std::vector<Row> rows = every_export(args);
    ASSERT_EQ(rows.size(), 85u);
    HandleSet live = open_set(vendor);
    std::vector<Bad> bad = closed_handles(vendor);
    std::set<HANDLE> liveSet;
    std::vector<HANDLE> near;
    for (int k = kDevice; k < kKinds; ++k) {
      if (!live.h[k]) continue;
      bad.push_back({live.h[k], k, false});
      liveSet.insert(live.h[k]);
      near.push_back(live.h[k]);
    }
    for (const Bad& b : bad) near.push_back(b.h);
    auto fits = [&](const Row& row, const Bad& b) {
      // A live handle of the row's own kind is no bad handle; SKF_CloseHandle takes every generic kind.
      if (b.closed || b.kind >= kKinds) return true;
      return !(b.kind == row.slot || (row.slot == kAnyGeneric && generic(b.kind)));
    };

    // Every row against every closed and wrong-kind handle, at the suite's log level.
    Tally t;
    for (const Row& row : rows)
      for (const Bad& b : bad)
        if (fits(row, b)) check(row, b, vendor, t);

    // Then random rows and handles in bulk, unlogged so that the count stays affordable.
    const char* env = std::getenv("VOREL_HANDLE_CALLS");
    uint64_t count = env ? std::strtoull(env, nullptr, 10) : 100000;
    const char* seedEnv = std::getenv("VOREL_HANDLE_SEED");
    uint64_t seed = seedEnv ? std::strtoull(seedEnv, nullptr, 10) : std::random_device()();
    std::printf("%s route: %llu random calls, VOREL_HANDLE_SEED=%llu\n", vendor ? "vendor" : "emulated",
                static_cast<unsigned long long>(count), static_cast<unsigned long long>(seed));
    std::mt19937_64 rng(seed);
    {
      testsupport::ScopedEnv quiet("VOREL_SKF_LOG_LEVEL", "0");
      for (uint64_t i = 0; i < count; ++i) {
        const Row& row = rows[rng() % rows.size()];
        Bad b{nullptr, kKinds, false};
        if (rng() % 2) {
          b = bad[rng() % bad.size()];
          if (!fits(row, b)) b = Bad{nullptr, kKinds, false};
        }
        if (!b.h) b.h = random_handle(rng, near, liveSet);
        check(row, b, vendor, t);
      }
    }
    std::printf("%llu calls, %llu wrong answers\n", static_cast<unsigned long long>(t.calls),
                static_cast<unsigned long long>(t.wrong));
    EXPECT_EQ(t.wrong, 0u) << t.first;

    // The live handles came through untouched.
    DEVINFO info;
    ULONG state = 0, type = 0;
    EXPECT_EQ(SKF_GetDevInfo(live.h[kDevice], &info), kOk);
    EXPECT_EQ(SKF_GetSecureState(live.h[kApplication], &state), kOk);
    EXPECT_EQ(SKF_GetContainerType(live.h[kContainer], &type), kOk);
    EXPECT_EQ(SKF_EncryptInit(live.h[kKey], args.param), kOk);
    EXPECT_EQ(SKF_DigestUpdate(live.h[kHash], args.in, 16), kOk);
    EXPECT_EQ(SKF_MacUpdate(live.h[kMac], args.in, 16), kOk);
    close_set(live);
  }

  std::unique_ptr<testsupport::Recorder> vendor_;
};

TEST_F(HandleSafety, EveryRowGetsAsFarAsItsHandleCheck) {
  // With a live handle of its own kind no row is refused for its handle: the arguments of the
  // table are good, so the refusals above are the handles' doing.
  for (bool vendor : {false, true}) {
    Args args;
    for (const Row& row : every_export(args)) {
      if (row.slot == kNone) {
        EXPECT_EQ(row.call(nullptr), row.fixed) << row.name;
        continue;
      }
      HandleSet s = open_set(vendor);
      int kind = row.slot == kAnyGeneric ? kHash : row.slot;
      ULONG rc = row.call(s.h[kind]);
      EXPECT_NE(rc, static_cast<ULONG>(SAR_INVALIDHANDLEERR)) << row.name << (vendor ? " (vendor)" : "");
      if (row.slot == kDevice && std::strcmp(row.name, "SKF_LockDev") == 0) SKF_UnlockDev(s.h[kDevice]);
      close_any(args.made);
      args.made = nullptr;
      close_set(s);
    }
  }
}

TEST_F(HandleSafety, EmulatedRouteRefusesEveryHandleThatIsNotItsOwn) { run_route(false); }

TEST_F(HandleSafety, VendorRouteRefusesEveryHandleThatIsNotItsOwnBeforeTheVendorSeesIt) { run_route(true); }

}  // namespace
}  // namespace device
