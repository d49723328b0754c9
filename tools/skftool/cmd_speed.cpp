// Throughput through the library: digests and ciphers in MB/s, SM2 operations per second.
#include <chrono>
#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "keys.h"

#ifdef _WIN32
#include <io.h>
#define isatty _isatty
#else
#include <unistd.h>
#endif

namespace skftool {

namespace {

struct Result {
  std::string test;
  double value;
  const char* unit;
};

// Runs op for about seconds; returns how many times it ran per second. On a terminal the
// elapsed time is shown as it goes.
double measure(const std::string& test, double seconds, const std::function<void()>& op) {
  using Clock = std::chrono::steady_clock;
  bool terminal = isatty(2) != 0;
  auto start = Clock::now(), shown = start;
  long long count = 0;
  double elapsed = 0;
  do {
    op();
    ++count;
    auto now = Clock::now();
    elapsed = std::chrono::duration<double>(now - start).count();
    if (terminal && now - shown > std::chrono::milliseconds(200)) {
      std::fprintf(stderr, "\r%-14s %4.1f s", test.c_str(), elapsed);
      shown = now;
    }
  } while (elapsed < seconds);
  if (terminal) std::fprintf(stderr, "\r%-24s\r", "");
  return count / elapsed;
}

}  // namespace

int cmd_speed(const Options& o) {
  if (o.seconds <= 0 || o.seconds > 600) throw Failure("--seconds must be above 0 and at most 600", kUsage);
  auto lib = open_library(o);
  Device dev(*lib, o.device);
  std::vector<Result> results;
  const ULONG chunk = 64 * 1024;
  Bytes data(chunk, 0x5A), out(chunk + 32);
  const double mb = chunk / 1e6;

  for (auto [name, alg] : {std::make_pair("sm3", SGD_SM3), std::make_pair("sha256", SGD_SHA256)}) {
    Handle h(*lib);
    check(lib->SKF_DigestInit(dev.handle(), alg, nullptr, nullptr, 0, h.out()), "starting the digest");
    double rate =
        measure(name, o.seconds, [&] { check(lib->SKF_DigestUpdate(h.get(), data.data(), chunk), "hashing"); });
    results.push_back({name, rate * mb, "MB/s"});
  }
  {
    Handle k(*lib);
    BYTE key[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    check(lib->SKF_SetSymmKey(dev.handle(), key, SGD_SMS4_CBC, k.out()), "setting the key");
    BLOCKCIPHERPARAM param{};
    param.IVLen = 16;
    check(lib->SKF_EncryptInit(k.get(), param), "starting the encryption");
    double rate = measure("sm4-cbc", o.seconds, [&] {
      ULONG len = static_cast<ULONG>(out.size());
      check(lib->SKF_EncryptUpdate(k.get(), data.data(), chunk, out.data(), &len), "encrypting");
    });
    results.push_back({"sm4-cbc", rate * mb, "MB/s"});
  }
  if (!o.container.empty()) {
    Application app(dev, o.app);
    login(app, o);
    Container c(app, o.container);
    if (c.type() != 2) throw Failure("speed measures SM2 containers; " + c.name() + " is not one");
    PublicKey pub = public_key_from_blob(c.public_blob(true));
    BYTE hash[32] = {7};
    ECCSIGNATUREBLOB sig{};
    results.push_back(
        {"sm2 sign",
         measure("sm2 sign", o.seconds, [&] { check(lib->SKF_ECCSignData(c.handle(), hash, 32, &sig), "signing"); }),
         "ops/s"});
    results.push_back({"sm2 verify",
                       measure("sm2 verify", o.seconds,
                               [&] { check(lib->SKF_ECCVerify(dev.handle(), &pub.ecc, hash, 32, &sig), "verifying"); }),
                       "ops/s"});
    Bytes blob(sizeof(ECCCIPHERBLOB) + 32);
    results.push_back({"sm2 encrypt",
                       measure("sm2 encrypt", o.seconds,
                               [&] {
                                 check(lib->SKF_ExtECCEncrypt(dev.handle(), &pub.ecc, hash, 32,
                                                              reinterpret_cast<ECCCIPHERBLOB*>(blob.data())),
                                       "encrypting");
                               }),
                       "ops/s"});
  }

  if (o.json) {
    nlohmann::json j = nlohmann::json::array();
    for (const Result& r : results) j.push_back({{"test", r.test}, {"value", r.value}, {"unit", r.unit}});
    std::printf("%s\n", nlohmann::json{{"device", dev.name()}, {"results", j}}.dump(2).c_str());
    return kDone;
  }
  std::printf("%-14s %12s\n", "test", "result");
  for (const Result& r : results) std::printf("%-14s %12.1f %s\n", r.test.c_str(), r.value, r.unit);
  if (o.container.empty()) std::printf("(give --container and a PIN to measure SM2 signing and encryption)\n");
  return kDone;
}

}  // namespace skftool
