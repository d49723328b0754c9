// Threads sharing one software token through handles of their own, and handles closed under
// running calls. Each test runs under a watchdog that ends the process when a call hangs.
// VOREL_THREAD_SECONDS sets how long the mixed workload runs (default 3).
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "device_suite.h"
#include "vorel/vorel_crypto.h"
#include "vorel/vorel_ptr.h"

namespace device {
namespace {

constexpr int kThreads = 8;

using Clock = std::chrono::steady_clock;

double seconds_from_env(double fallback) {
  const char* v = std::getenv("VOREL_THREAD_SECONDS");
  double s = v ? std::atof(v) : 0;
  return s > 0 ? s : fallback;
}

// Ends the process, naming the test, when it is not cancelled in time: a hung call never returns,
// so nothing short of that ends the test.
class Watchdog {
 public:
  Watchdog(const char* what, double seconds) : what_(what) {
    thread_ = std::thread([this, seconds] {
      std::unique_lock<std::mutex> lock(mutex_);
      if (!done_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return cancelled_; })) {
        std::fprintf(stderr, "watchdog: %s still running after %.0f s: deadlock\n", what_, seconds);
        std::fflush(nullptr);
        std::_Exit(3);
      }
    });
  }
  ~Watchdog() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      cancelled_ = true;
    }
    done_.notify_all();
    thread_.join();
  }

 private:
  const char* what_;
  std::mutex mutex_;
  std::condition_variable done_;
  bool cancelled_ = false;
  std::thread thread_;
};

// What the threads report: anything unexpected, the first few described.
struct Anomalies {
  std::mutex mutex;
  int count = 0;
  std::string first;
  void add(const std::string& what, ULONG rc) {
    char code[16];
    std::snprintf(code, sizeof code, " 0x%08lx", static_cast<unsigned long>(rc));
    std::lock_guard<std::mutex> lock(mutex);
    if (++count <= 20) first += what + code + "\n";
  }
};

class Threads : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    make_token(3, "TH", "token", {{"s1", VOREL_KEYPAIR_SIGN, "C", "s1"}, {"s2", VOREL_KEYPAIR_ENCRYPT, "C", "s2"}});
    // The token's login is one per process: verified once, before the threads start.
    admin_ = connect("3#TH");
    char app[] = "VOREL";
    ASSERT_EQ(SKF_OpenApplication(admin_, app, &adminApp_), kOk);
    ULONG retries = 0;
    char pin[] = "12345678";
    ASSERT_EQ(SKF_VerifyPIN(adminApp_, USER_TYPE, pin, &retries), kOk);
  }
  DEVHANDLE admin_ = nullptr;
  HAPPLICATION adminApp_ = nullptr;
};

// A thread's own data and, computed with the crypto library before the threads start, its
// SHA-256 and its SM4-CBC encryption (no padding) under the thread's key and IV.
struct Reference {
  Bytes data, sha256, key, iv, cipher;
};

Bytes take(unsigned char* out, std::size_t len) {
  Bytes r(out, out + len);
  VorelPKICryptoFreeMemory(out);
  return r;
}

Reference reference(int i) {
  Reference r{{}, {}, Bytes(16, static_cast<BYTE>(0x40 + i)), Bytes(16, static_cast<BYTE>(0x80 + i)), {}};
  for (int b = 0; b < 64; ++b) r.data.push_back(static_cast<BYTE>(i * 31 + b * 7));
  VOREL_DEVICE* d = nullptr;
  VorelPKICryptoGetPseudoDevice(&d);
  vorel::UniquePtr<VOREL_DEVICE> pseudo(d);
  vorel::UniquePtr<VOREL_HASH> hash(VorelPKICryptoNewHash(d, VOREL_HASH_SHA256));
  vorel::UniquePtr<VOREL_CIPHER> c(VorelPKICryptoNewCipher(d, 1, VOREL_CIPHER_SM4_CBC, r.key.data(), 16, r.iv.data()));
  if (!hash || !c) {
    ADD_FAILURE() << "no SHA-256 or SM4-CBC in the crypto library";
    return r;
  }
  unsigned char* out = nullptr;
  std::size_t len = 0;
  EXPECT_EQ(VorelPKICryptoHashUpdate(hash.get(), r.data.data(), r.data.size()), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoHashFinal(hash.get(), &out, &len), VOREL_OK);
  r.sha256 = take(out, len);
  VorelPKICryptoCipherSetPadding(c.get(), VOREL_PADDING_NONE);
  EXPECT_EQ(VorelPKICryptoCipherUpdate(c.get(), r.data.data(), r.data.size(), &out, &len), VOREL_OK);
  r.cipher = take(out, len);
  return r;
}

TEST_F(Threads, EightThreadsShareOneTokenWithoutWrongResults) {
  const double seconds = seconds_from_env(3);
  std::vector<Reference> refs;
  for (int i = 0; i < kThreads; ++i) refs.push_back(reference(i));

  Anomalies anomalies;
  std::vector<long> ops(kThreads, 0);
  const auto deadline =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));

  auto worker = [&](int i) {
    const Reference& ref = refs[static_cast<std::size_t>(i)];
    auto bad = [&](const char* what, ULONG rc) {
      anomalies.add("thread " + std::to_string(i) + ": " + what, rc);
    };
    std::string name = "3#TH";
    DEVHANDLE dev = nullptr;
    HAPPLICATION app = nullptr;
    HCONTAINER con = nullptr;
    char appName[] = "VOREL", conName[] = "C";
    ULONG rc = SKF_ConnectDev(&name[0], &dev);
    if (rc == kOk) rc = SKF_OpenApplication(dev, appName, &app);
    if (rc == kOk) rc = SKF_OpenContainer(app, conName, &con);
    if (rc != kOk) return bad("opening", rc);
    ECCPUBLICKEYBLOB signPub{}, encPub{};
    ULONG len = sizeof signPub;
    SKF_ExportPublicKey(con, TRUE, reinterpret_cast<BYTE*>(&signPub), &len);
    len = sizeof encPub;
    SKF_ExportPublicKey(con, FALSE, reinterpret_cast<BYTE*>(&encPub), &len);
    HANDLE key = nullptr;
    Bytes keyBytes = ref.key;
    keyBytes.resize(32);
    if ((rc = SKF_SetSymmKey(dev, keyBytes.data(), SGD_SMS4_CBC, &key)) != kOk) return bad("SKF_SetSymmKey", rc);
    BLOCKCIPHERPARAM param{};
    std::memcpy(param.IV, ref.iv.data(), 16);
    param.IVLen = 16;
    char fileName[8];
    std::snprintf(fileName, sizeof fileName, "t%d", i);
    bool fileExists = false;
    char id[] = "1234567812345678";

    for (long n = 0; Clock::now() < deadline; ++n) {
      BYTE out[512];
      ULONG outLen = sizeof out;
      switch (n % 6) {
        case 0: {  // SM2 signature over e = SM3(Z || M), verified by the export
          std::string message = "thread " + std::to_string(i) + " message " + std::to_string(n);
          HANDLE hash = nullptr;
          BYTE e[32];
          ULONG eLen = sizeof e;
          if ((rc = SKF_DigestInit(dev, SGD_SM3, &signPub, reinterpret_cast<BYTE*>(id), 16, &hash)) != kOk)
            return bad("SKF_DigestInit", rc);
          rc = SKF_Digest(hash, reinterpret_cast<BYTE*>(&message[0]), static_cast<ULONG>(message.size()), e, &eLen);
          SKF_CloseHandle(hash);
          if (rc != kOk) return bad("SKF_Digest", rc);
          ECCSIGNATUREBLOB sig{};
          if ((rc = SKF_ECCSignData(con, e, 32, &sig)) != kOk) return bad("SKF_ECCSignData", rc);
          if ((rc = SKF_ECCVerify(dev, &signPub, e, 32, &sig)) != kOk) return bad("SKF_ECCVerify", rc);
          break;
        }
        case 1: {  // SHA-256
          HANDLE hash = nullptr;
          if ((rc = SKF_DigestInit(dev, SGD_SHA256, nullptr, nullptr, 0, &hash)) != kOk)
            return bad("SKF_DigestInit", rc);
          rc = SKF_Digest(hash, const_cast<BYTE*>(ref.data.data()), 64, out, &outLen);
          SKF_CloseHandle(hash);
          if (rc != kOk || Bytes(out, out + outLen) != ref.sha256) return bad("SKF_Digest SHA-256", rc);
          break;
        }
        case 2: {  // SM4 CBC both ways
          if ((rc = SKF_EncryptInit(key, param)) != kOk) return bad("SKF_EncryptInit", rc);
          if ((rc = SKF_Encrypt(key, const_cast<BYTE*>(ref.data.data()), 64, out, &outLen)) != kOk ||
              Bytes(out, out + outLen) != ref.cipher)
            return bad("SKF_Encrypt", rc);
          BYTE plain[128];
          ULONG plainLen = sizeof plain;
          if ((rc = SKF_DecryptInit(key, param)) != kOk) return bad("SKF_DecryptInit", rc);
          if ((rc = SKF_Decrypt(key, out, outLen, plain, &plainLen)) != kOk ||
              Bytes(plain, plain + plainLen) != ref.data)
            return bad("SKF_Decrypt", rc);
          break;
        }
        case 3: {  // SM2 encryption for the container's encryption key pair, and its decryption
          BYTE blob[sizeof(ECCCIPHERBLOB) + 64];
          auto* ct = reinterpret_cast<ECCCIPHERBLOB*>(blob);
          if ((rc = SKF_ExtECCEncrypt(dev, &encPub, const_cast<BYTE*>(ref.data.data()), 32, ct)) != kOk)
            return bad("SKF_ExtECCEncrypt", rc);
          if ((rc = SKF_ECCDecrypt(con, FALSE, ct, out, &outLen)) != kOk ||
              Bytes(out, out + outLen) != Bytes(ref.data.begin(), ref.data.begin() + 32))
            return bad("SKF_ECCDecrypt", rc);
          break;
        }
        case 4: {  // this thread's file: created (or made again), written, read back
          if (!fileExists || n % 24 == 4) {
            if (fileExists && (rc = SKF_DeleteFile(app, fileName)) != kOk) return bad("SKF_DeleteFile", rc);
            if ((rc = SKF_CreateFile(app, fileName, 64, 0xFF, 0xFF)) != kOk) return bad("SKF_CreateFile", rc);
            fileExists = true;
          }
          BYTE mine[64];
          for (int b = 0; b < 64; ++b) mine[b] = static_cast<BYTE>(n + b + i);
          if ((rc = SKF_WriteFile(app, fileName, 0, mine, 64)) != kOk) return bad("SKF_WriteFile", rc);
          ULONG readLen = sizeof out;
          if ((rc = SKF_ReadFile(app, fileName, 0, 64, out, &readLen)) != kOk || readLen != 64 ||
              std::memcmp(out, mine, 64) != 0)
            return bad("SKF_ReadFile gave back other bytes", rc);
          break;
        }
        default: {  // a second container handle, opened and closed
          HCONTAINER extra = nullptr;
          ULONG type = 0;
          if ((rc = SKF_OpenContainer(app, conName, &extra)) != kOk) return bad("SKF_OpenContainer", rc);
          rc = SKF_GetContainerType(extra, &type);
          ULONG closed = SKF_CloseContainer(extra);
          if (rc != kOk || type != 2 || closed != kOk) return bad("second container", rc);
        }
      }
      ++ops[static_cast<std::size_t>(i)];
    }
    SKF_CloseHandle(key);
    if ((rc = SKF_DisConnectDev(dev)) != kOk) bad("SKF_DisConnectDev", rc);
  };

  {
    Watchdog watchdog("the eight-thread workload", seconds + 300);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back(worker, i);
    for (std::thread& t : threads) t.join();
  }
  long total = 0;
  for (int i = 0; i < kThreads; ++i) total += ops[static_cast<std::size_t>(i)];
  std::printf("%d threads, %.1f s: %ld operations (%ld per thread), %d anomalies\n", kThreads, seconds, total,
              total / kThreads, anomalies.count);
  EXPECT_EQ(anomalies.count, 0) << anomalies.first;
  for (int i = 0; i < kThreads; ++i) EXPECT_GE(ops[static_cast<std::size_t>(i)], 6) << "thread " << i << " starved";

}

// Handles closed and made again on one thread while others use them: every call either works or
// finds the handle closed, and none crashes or reads freed memory.
TEST_F(Threads, HandlesClosedUnderRunningCallsAnswerInvalidHandle) {
  const double seconds = seconds_from_env(3) / 2;
  struct Shared {
    std::atomic<HANDLE> app{nullptr}, con{nullptr}, key{nullptr}, hash{nullptr};
  } shared;
  char appName[] = "VOREL", conName[] = "C";
  auto reopen = [&] {
    HANDLE app = nullptr, con = nullptr, key = nullptr, hash = nullptr;
    BYTE k[32] = {7};
    EXPECT_EQ(SKF_OpenApplication(admin_, appName, &app), kOk);
    EXPECT_EQ(SKF_OpenContainer(app, conName, &con), kOk);
    EXPECT_EQ(SKF_SetSymmKey(admin_, k, SGD_SMS4_ECB, &key), kOk);
    EXPECT_EQ(SKF_DigestInit(admin_, SGD_SM3, nullptr, nullptr, 0, &hash), kOk);
    shared.app = app;
    shared.con = con;
    shared.key = key;
    shared.hash = hash;
  };
  reopen();
  std::atomic<bool> stop{false};
  Anomalies anomalies;
  std::atomic<long> calls{0}, refused{0};
  const struct {
    const char* name;
    std::function<ULONG(BYTE*, ULONG*)> call;
  } uses[] = {
      {"SKF_GetSecureState", [&](BYTE*, ULONG* n) { return SKF_GetSecureState(shared.app, n); }},
      {"SKF_EnumContainer",
       [&](BYTE* b, ULONG* n) { return SKF_EnumContainer(shared.app, reinterpret_cast<LPSTR>(b), n); }},
      {"SKF_GetContainerType", [&](BYTE*, ULONG* n) { return SKF_GetContainerType(shared.con, n); }},
      {"SKF_ExportPublicKey", [&](BYTE* b, ULONG* n) { return SKF_ExportPublicKey(shared.con, TRUE, b, n); }},
      {"SKF_EncryptInit", [&](BYTE*, ULONG*) { return SKF_EncryptInit(shared.key, BLOCKCIPHERPARAM{}); }},
      {"SKF_DigestUpdate", [&](BYTE* b, ULONG*) { return SKF_DigestUpdate(shared.hash, b, 64); }},
  };
  auto user = [&](int i) {
    BYTE buf[512] = {};
    for (long n = 0; !stop; ++n) {
      ULONG len = sizeof buf;
      const auto& use = uses[(n + i) % 6];
      ULONG rc = use.call(buf, &len);
      ++calls;
      if (rc == SAR_INVALIDHANDLEERR)
        ++refused;
      else if (rc != kOk)
        anomalies.add(use.name, rc);
    }
  };
  {
    Watchdog watchdog("closing handles under running calls", seconds + 300);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads - 2; ++i) threads.emplace_back(user, i);
    const auto deadline =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    long rounds = 0;
    while (Clock::now() < deadline) {
      HANDLE app = shared.app, key = shared.key, hash = shared.hash;
      // Alternately the application with its container, and each handle by itself.
      if (rounds % 2 == 0) {
        EXPECT_EQ(SKF_CloseApplication(app), kOk);
      } else {
        EXPECT_EQ(SKF_CloseContainer(shared.con), kOk);
        EXPECT_EQ(SKF_CloseApplication(app), kOk);
      }
      EXPECT_EQ(SKF_CloseHandle(key), kOk);
      EXPECT_EQ(SKF_CloseHandle(hash), kOk);
      reopen();
      ++rounds;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    stop = true;
    for (std::thread& t : threads) t.join();
    std::printf("%ld reopenings, %ld calls, %ld found their handle closed\n", rounds, calls.load(), refused.load());
  }
  EXPECT_EQ(anomalies.count, 0) << anomalies.first;
}

// A thread waiting for the device lock is let go when the holder disconnects the device. A reload
// waits for the calls in flight, but such a waiter is not one of them: its holder's SKF_UnlockDev
// would be held at the door the reload closed.
TEST_F(Threads, AWaiterForTheDeviceLockHoldsUpNeitherADisconnectNorAReload) {
  const struct {
    const char* what;
    std::function<void(DEVHANDLE, const std::atomic<ULONG>&)> holder;
    ULONG waiterGets;
  } cases[] = {
      {"a waiter for the device lock of a disconnected device",
       [](DEVHANDLE dev, const std::atomic<ULONG>&) { EXPECT_EQ(SKF_DisConnectDev(dev), kOk); }, SAR_INVALIDHANDLEERR},
      {"a reload beside a waiter for the device lock",
       [](DEVHANDLE dev, const std::atomic<ULONG>& waited) {
         auto start = Clock::now();
         char json[] = R"({"devices":[{"type":3}]})";
         EXPECT_EQ(SKF_LoadConfigurationWithContent(json), kOk);
         EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
         EXPECT_EQ(waited.load(), 0xFFFFFFFFu) << "the lock was not held";
         EXPECT_EQ(SKF_UnlockDev(dev), kOk);
       },
       kOk},
  };
  for (const auto& c : cases) {
    DEVHANDLE dev = connect("3#TH");
    ASSERT_EQ(SKF_LockDev(dev, 0), kOk);
    std::atomic<ULONG> waited{0xFFFFFFFF};
    Watchdog watchdog(c.what, 60);
    std::thread waiter([&] {
      waited = SKF_LockDev(dev, 0);
      if (waited == kOk) SKF_UnlockDev(dev);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(waited.load(), 0xFFFFFFFFu) << c.what << ": the lock was not held";
    c.holder(dev, waited);
    waiter.join();
    EXPECT_EQ(waited.load(), c.waiterGets) << c.what;
  }
}

// Loading the configuration again while calls run changes none of their answers.
TEST_F(Threads, ReloadingTheConfigurationUnderRunningCallsChangesNoAnswer) {
  const std::string json = R"({"devices":[{"name":"EMULATED","type":3},)" + vendor_entry(7) + "]}";
  configure(json);
  testsupport::Recorder vendor(testsupport::module_path(VENDOR_FIXTURE));
  DEVHANDLE vdev = connect("7#FIXTURE0");
  HAPPLICATION app = nullptr;
  char appName[] = "VOREL", file[] = "cfg";
  ASSERT_EQ(SKF_OpenApplication(admin_, appName, &app), kOk);
  ASSERT_EQ(SKF_CreateFile(app, file, 16, 0xFF, 0xFF), kOk);
  std::atomic<bool> stop{false};
  Anomalies anomalies;
  std::atomic<long> calls{0};
  auto user = [&](int i) {
    BYTE buf[64];
    FILEATTRIBUTE info;
    while (!stop) {
      ULONG rc = i % 2 ? SKF_GenRandom(vdev, buf, 16) : SKF_GetFileInfo(app, file, &info);
      ++calls;
      if (rc != kOk) anomalies.add(i % 2 ? "SKF_GenRandom (vendor)" : "SKF_GetFileInfo", rc);
    }
  };
  {
    Watchdog watchdog("calls during configuration loads", 300);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back(user, i);
    std::string copy = json;
    for (int n = 0; n < 200; ++n) EXPECT_EQ(SKF_LoadConfigurationWithContent(&copy[0]), kOk);
    stop = true;
    for (std::thread& t : threads) t.join();
  }
  EXPECT_GT(calls.load(), 0);
  EXPECT_EQ(anomalies.count, 0) << anomalies.first;
}

}  // namespace
}  // namespace device
