// Threads sharing one software token through handles of their own; handles closed and the
// configuration loaded again under running calls; waiters for the device lock. Each test runs
// under a watchdog that ends the process when a call hangs.
// VOREL_THREAD_SECONDS sets how long the mixed workload runs (default 3).
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "device_suite.h"
#include "vorel/vorel_crypto.h"

namespace device {
namespace {

constexpr int kThreads = 8;

using Clock = std::chrono::steady_clock;

double seconds_from_env(double fallback) {
  const char* v = std::getenv("VOREL_THREAD_SECONDS");
  double s = v ? std::atof(v) : 0;
  return s > 0 ? s : fallback;
}

// Ends the process, naming the test, when not destroyed in time: a hung call never returns, so
// nothing short of that ends the test.
class Watchdog {
 public:
  Watchdog(const char* what, double seconds)
      : thread_([what, seconds, cancelled = cancel_.get_future()] {
          if (cancelled.wait_for(std::chrono::duration<double>(seconds)) == std::future_status::timeout) {
            std::fprintf(stderr, "watchdog: %s still running after %.0f s: deadlock\n", what, seconds);
            std::fflush(nullptr);
            std::_Exit(3);
          }
        }) {}
  ~Watchdog() {
    cancel_.set_value();
    thread_.join();
  }

 private:
  std::promise<void> cancel_;
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

// Calls use(thread, n) on each of `users` threads, n counting that thread's calls, until driver
// returns, under a watchdog of `limit` seconds. Answers how many calls each thread made.
std::vector<long> run_users(int users, const char* what, double limit, const std::function<void(int, long)>& use,
                            const std::function<void()>& driver) {
  Watchdog watchdog(what, limit);
  std::atomic<bool> stop{false};
  std::vector<long> calls(static_cast<std::size_t>(users), 0);
  std::vector<std::thread> threads;
  for (int i = 0; i < users; ++i) {
    threads.emplace_back([&, i] {
      long& n = calls[static_cast<std::size_t>(i)];
      while (!stop) use(i, n++);
    });
  }
  driver();
  stop = true;
  for (std::thread& t : threads) t.join();
  return calls;
}

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

// One thread's own handles on the shared token, its own SM4 key and its own 64 bytes of data.
struct Session {
  int i = 0;
  DEVHANDLE dev = nullptr;
  HAPPLICATION app = nullptr;
  HCONTAINER con = nullptr;
  HANDLE key = nullptr;
  ECCPUBLICKEYBLOB signPub{}, encPub{};
  Bytes data;
  std::vector<Bytes> alone;  // each round's answer when the thread ran alone
};

// The digest of the session's data; with a public key, SM3(Z || M) under the default signer ID.
ULONG digest(Session& s, ULONG alg, ECCPUBLICKEYBLOB* pub, Bytes& out) {
  char id[] = "1234567812345678";
  HANDLE hash = nullptr;
  ULONG len = 64;
  out.resize(len);
  ULONG rc = SKF_DigestInit(s.dev, alg, pub, pub ? reinterpret_cast<BYTE*>(id) : nullptr, pub ? 16 : 0, &hash);
  if (rc == kOk) rc = SKF_Digest(hash, s.data.data(), 64, out.data(), &len);
  SKF_CloseHandle(hash);
  out.resize(len);
  return rc;
}

// One round of a thread's workload. What it puts in out must be what the same round gives when
// the thread runs alone.
struct Round {
  const char* name;
  ULONG (*run)(Session& s, Bytes& out);
};

const Round kRounds[] = {
    {"SM2 signature over SM3(Z || M), verified by the export",
     [](Session& s, Bytes& e) {
       ULONG rc = digest(s, SGD_SM3, &s.signPub, e);
       ECCSIGNATUREBLOB sig{};
       if (rc == kOk) rc = SKF_ECCSignData(s.con, e.data(), 32, &sig);
       return rc == kOk ? SKF_ECCVerify(s.dev, &s.signPub, e.data(), 32, &sig) : rc;
     }},
    {"SHA-256", [](Session& s, Bytes& out) { return digest(s, SGD_SHA256, nullptr, out); }},
    {"SM4-CBC encryption and decryption",
     [](Session& s, Bytes& out) {
       BLOCKCIPHERPARAM param{};
       std::memset(param.IV, 0x80 + s.i, 16);
       param.IVLen = 16;
       ULONG len = 64, back = 64;
       out.resize(128);
       ULONG rc = SKF_EncryptInit(s.key, param);
       if (rc == kOk) rc = SKF_Encrypt(s.key, s.data.data(), 64, out.data(), &len);
       if (rc == kOk) rc = SKF_DecryptInit(s.key, param);
       if (rc == kOk) rc = SKF_Decrypt(s.key, out.data(), len, out.data() + 64, &back);
       return rc;
     }},
    {"SM2 encryption for the container's encryption pair, and its decryption",
     [](Session& s, Bytes& out) {
       BYTE blob[sizeof(ECCCIPHERBLOB) + 64];
       auto* ct = reinterpret_cast<ECCCIPHERBLOB*>(blob);
       ULONG len = 64;
       out.resize(len);
       ULONG rc = SKF_ExtECCEncrypt(s.dev, &s.encPub, s.data.data(), 32, ct);
       if (rc == kOk) rc = SKF_ECCDecrypt(s.con, FALSE, ct, out.data(), &len);
       out.resize(len);
       return rc;
     }},
    {"the thread's file created, written, read back and deleted",
     [](Session& s, Bytes& out) {
       std::string name = "t" + std::to_string(s.i);
       ULONG len = 64;
       out.resize(len);
       ULONG rc = SKF_CreateFile(s.app, &name[0], 64, 0xFF, 0xFF);
       if (rc == kOk) rc = SKF_WriteFile(s.app, &name[0], 0, s.data.data(), 64);
       if (rc == kOk) rc = SKF_ReadFile(s.app, &name[0], 0, 64, out.data(), &len);
       out.resize(len);
       ULONG deleted = SKF_DeleteFile(s.app, &name[0]);
       return rc == kOk ? deleted : rc;
     }},
    {"a second container handle, opened and closed",
     [](Session& s, Bytes& out) {
       char name[] = "C";
       HCONTAINER extra = nullptr;
       ULONG type = 0;
       ULONG rc = SKF_OpenContainer(s.app, name, &extra);
       if (rc == kOk) rc = SKF_GetContainerType(extra, &type);
       ULONG closed = SKF_CloseContainer(extra);
       out = {static_cast<BYTE>(type)};
       return rc == kOk ? closed : rc;
     }},
};

// Each thread's rounds, run alone first, then by all the threads at once: every answer the same.
TEST_F(Threads, EightThreadsShareOneTokenWithoutWrongResults) {
  const double seconds = seconds_from_env(3);
  std::vector<Session> sessions(kThreads);
  for (Session& s : sessions) {
    s.i = static_cast<int>(&s - &sessions[0]);
    s.dev = connect("3#TH");
    char appName[] = "VOREL", conName[] = "C";
    ASSERT_EQ(SKF_OpenApplication(s.dev, appName, &s.app), kOk);
    ASSERT_EQ(SKF_OpenContainer(s.app, conName, &s.con), kOk);
    ULONG len = sizeof s.signPub;
    ASSERT_EQ(SKF_ExportPublicKey(s.con, TRUE, reinterpret_cast<BYTE*>(&s.signPub), &len), kOk);
    len = sizeof s.encPub;
    ASSERT_EQ(SKF_ExportPublicKey(s.con, FALSE, reinterpret_cast<BYTE*>(&s.encPub), &len), kOk);
    BYTE key[32];
    std::memset(key, 0x40 + s.i, sizeof key);
    ASSERT_EQ(SKF_SetSymmKey(s.dev, key, SGD_SMS4_CBC, &s.key), kOk);
    for (int b = 0; b < 64; ++b) s.data.push_back(static_cast<BYTE>(s.i * 31 + b * 7));
    for (const Round& r : kRounds) ASSERT_EQ(r.run(s, s.alone.emplace_back()), kOk) << r.name;
  }
  Anomalies anomalies;
  std::vector<long> rounds = run_users(
      kThreads, "the eight-thread workload", seconds + 300,
      [&](int i, long n) {
        Session& s = sessions[static_cast<std::size_t>(i)];
        std::size_t k = static_cast<std::size_t>(n + i) % std::size(kRounds);
        Bytes out;
        ULONG rc = kRounds[k].run(s, out);
        if (rc != kOk || out != s.alone[k]) anomalies.add("thread " + std::to_string(i) + ": " + kRounds[k].name, rc);
      },
      [&] { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); });
  EXPECT_EQ(anomalies.count, 0) << anomalies.first;
  for (long r : rounds) EXPECT_GE(r, 6) << "a thread starved";
}

// Handles closed and made again, and the configuration loaded again, on one thread while others
// make calls: a call on a closed handle finds it closed, every other call works, and none crashes
// or reads freed memory.
TEST_F(Threads, HandlesClosedAndReloadsUnderRunningCallsChangeNoOtherAnswer) {
  const double seconds = seconds_from_env(3) / 2;
  std::string json = R"({"devices":[{"name":"EMULATED","type":3},)" + vendor_entry(7) + "]}";
  configure(json);
  testsupport::Recorder vendor(testsupport::module_path(VENDOR_FIXTURE));
  DEVHANDLE vdev = connect("7#FIXTURE0");
  char appName[] = "VOREL", conName[] = "C", file[] = "cfg";
  ASSERT_EQ(SKF_CreateFile(adminApp_, file, 16, 0xFF, 0xFF), kOk);
  struct Shared {
    std::atomic<HANDLE> app{nullptr}, con{nullptr}, key{nullptr}, hash{nullptr};
  } shared;
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
  Anomalies anomalies;
  const struct {
    const char* name;
    bool closedUnderIt;  // its handle is closed and made again while it runs
    std::function<ULONG(BYTE*, ULONG*)> call;
  } uses[] = {
      {"SKF_GetSecureState", true, [&](BYTE*, ULONG* n) { return SKF_GetSecureState(shared.app, n); }},
      {"SKF_EnumContainer", true,
       [&](BYTE* b, ULONG* n) { return SKF_EnumContainer(shared.app, reinterpret_cast<LPSTR>(b), n); }},
      {"SKF_GetContainerType", true, [&](BYTE*, ULONG* n) { return SKF_GetContainerType(shared.con, n); }},
      {"SKF_ExportPublicKey", true, [&](BYTE* b, ULONG* n) { return SKF_ExportPublicKey(shared.con, TRUE, b, n); }},
      {"SKF_EncryptInit", true, [&](BYTE*, ULONG*) { return SKF_EncryptInit(shared.key, BLOCKCIPHERPARAM{}); }},
      {"SKF_DigestUpdate", true, [&](BYTE* b, ULONG*) { return SKF_DigestUpdate(shared.hash, b, 64); }},
      {"SKF_GenRandom (vendor)", false, [&](BYTE* b, ULONG*) { return SKF_GenRandom(vdev, b, 16); }},
      {"SKF_GetFileInfo", false,
       [&](BYTE* b, ULONG*) { return SKF_GetFileInfo(adminApp_, file, reinterpret_cast<FILEATTRIBUTE*>(b)); }},
  };
  run_users(
      kThreads - 2, "closing handles and reloading under running calls", seconds + 300,
      [&](int i, long n) {
        alignas(8) BYTE buf[512] = {};
        ULONG len = sizeof buf;
        const auto& use = uses[static_cast<std::size_t>(n + i) % std::size(uses)];
        ULONG rc = use.call(buf, &len);
        if (rc != kOk && !(use.closedUnderIt && rc == SAR_INVALIDHANDLEERR)) anomalies.add(use.name, rc);
      },
      [&] {
        const auto deadline =
            Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
        for (long round = 0; Clock::now() < deadline; ++round) {
          // Alternately the application with its container, and each handle by itself.
          if (round % 2) {
            EXPECT_EQ(SKF_CloseContainer(shared.con), kOk);
          }
          EXPECT_EQ(SKF_CloseApplication(shared.app), kOk);
          EXPECT_EQ(SKF_CloseHandle(shared.key), kOk);
          EXPECT_EQ(SKF_CloseHandle(shared.hash), kOk);
          reopen();
          EXPECT_EQ(SKF_LoadConfigurationWithContent(&json[0]), kOk);
        }
      });
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

}  // namespace
}  // namespace device
