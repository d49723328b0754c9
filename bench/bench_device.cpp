// Device and application exports against the crypto-library calls they wrap, at the default log
// level: SKF_GenRandom (32 bytes); SKF_ConnectDev + SKF_DisConnectDev of a token against
// VorelPKICryptoFindDevice + VorelPKICryptoFreeDevice; SKF_EnumDev with 1 and 32 tokens of one
// type, each holding 1 MiB of data objects (listing must not read them); SKF_OpenApplication +
// SKF_CloseApplication of 8 full containers against reading their key pairs, labels and
// certificates; SKF_VerifyPIN with the default key derivation against VorelPKICryptoVerifyPwd.
// Run from the binaries' folder (it reads testdata/device).
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "exports/frame.h"
#include "exports/lifecycle.h"
#include "ratio.h"
#include "scratch.h"

namespace {

DEVHANDLE g_device = nullptr;

void Raw_GenRandom(benchmark::State& state) {
  unsigned char out[32];
  auto device = vorel::find_device(g_device);
  for (auto _ : state) {
    benchmark::DoNotOptimize(VorelPKICryptoGenerateRandom(device->cryptoDevice.get(), sizeof out, out));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Raw_GenRandom);

void Ours_GenRandom(benchmark::State& state) {
  BYTE out[32];
  for (auto _ : state) {
    benchmark::DoNotOptimize(SKF_GenRandom(g_device, out, sizeof out));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Ours_GenRandom);

void Raw_ConnectDisconnect(benchmark::State& state) {
  for (auto _ : state) {
    VOREL_DEVICE* d = nullptr;
    if (VorelPKICryptoFindDevice(3, "T00", VOREL_ENUM_TOKENS, &d) != VOREL_OK) state.SkipWithError("find");
    VorelPKICryptoFreeDevice(d);
  }
}
BENCHMARK(Raw_ConnectDisconnect);

void Ours_ConnectDisconnect(benchmark::State& state) {
  char name[] = "3#T00";
  for (auto _ : state) {
    DEVHANDLE h = nullptr;
    if (SKF_ConnectDev(name, &h) != SAR_OK || SKF_DisConnectDev(h) != SAR_OK) state.SkipWithError("connect");
  }
}
BENCHMARK(Ours_ConnectDisconnect);

// Type 3 holds one token, type 4 holds 32.
void EnumDev(benchmark::State& state) {
  std::string config = R"({"devices":[{"type":)" + std::to_string(state.range(0)) + "}]}";
  SKF_LoadConfigurationWithContent(&config[0]);
  char names[4096];
  for (auto _ : state) {
    ULONG size = sizeof names;
    if (SKF_EnumDev(TRUE, names, &size) != SAR_OK) state.SkipWithError("enum");
  }
  state.counters["tokens"] = state.range(0) == 3 ? 1 : 32;
}
BENCHMARK(EnumDev)->Arg(3)->Arg(4);

DEVHANDLE g_full = nullptr;  // 8 containers of a signing and an encryption pair, each with its certificate
DEVHANDLE g_pins = nullptr;  // PINs with the default key derivation

void Raw_OpenApplication(benchmark::State& state) {
  VOREL_DEVICE* device = vorel::find_device(g_full)->cryptoDevice.get();
  for (auto _ : state) {
    VOREL_DEVICE* dup = nullptr;
    VorelPKICryptoDupDevice(device, &dup);
    int n = VorelPKICryptoGetKeypairCount(dup);
    for (int i = 0; i < n; ++i) {
      VOREL_KEYPAIR* kp = VorelPKICryptoGetKeypair(dup, i);
      benchmark::DoNotOptimize(VorelPKICryptoGetKeypairType(kp) + VorelPKICryptoGetKeypairAlgorithm(kp) +
                               VorelPKICryptoGetKeypairBits(kp));
      char* label = nullptr;
      VorelPKICryptoGetKeypairLabel(kp, &label);
      VorelPKICryptoFreeMemory(label);
      VOREL_CERT* cert = nullptr;
      VorelPKICryptoGetCertificate(kp, 0, &cert);
      VorelPKICertFreeCert(cert);
      VorelPKICryptoFreeKeypair(kp);
    }
    VorelPKICryptoFreeDevice(dup);
  }
}
BENCHMARK(Raw_OpenApplication);

void Ours_OpenApplication(benchmark::State& state) {
  char name[] = "VOREL";
  for (auto _ : state) {
    HAPPLICATION app = nullptr;
    if (SKF_OpenApplication(g_full, name, &app) != SAR_OK || SKF_CloseApplication(app) != SAR_OK)
      state.SkipWithError("open");
  }
}
BENCHMARK(Ours_OpenApplication);

void Raw_VerifyPIN(benchmark::State& state) {
  VOREL_DEVICE* device = vorel::find_device(g_pins)->cryptoDevice.get();
  for (auto _ : state) {
    unsigned retries = 0;
    if (VorelPKICryptoVerifyPwd(device, VOREL_PWD_USER, "12345678", &retries) != VOREL_OK) state.SkipWithError("pin");
  }
}
BENCHMARK(Raw_VerifyPIN)->Unit(benchmark::kMillisecond);

void Ours_VerifyPIN(benchmark::State& state) {
  char name[] = "VOREL", pin[] = "12345678";
  HAPPLICATION app = nullptr;
  SKF_OpenApplication(g_pins, name, &app);
  for (auto _ : state) {
    ULONG retries = 0;
    if (SKF_VerifyPIN(app, USER_TYPE, pin, &retries) != SAR_OK) state.SkipWithError("pin");
  }
  SKF_CloseApplication(app);
}
BENCHMARK(Ours_VerifyPIN)->Unit(benchmark::kMillisecond);

std::string read_data(const std::string& name) {
  std::string path = "testdata/device/" + name, data;
  if (FILE* f = std::fopen(path.c_str(), "rb")) {
    char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) data.append(buf, n);
    std::fclose(f);
  }
  if (data.empty()) {
    std::fprintf(stderr, "no %s: run from the binaries' folder after building the tests\n", path.c_str());
    std::exit(1);
  }
  return data;
}

// 8 containers C1..C8, each a signing and an encryption pair of one label, each with a certificate.
void make_full_token(int type, const std::string& serial) {
  VOREL_DEVICE* d = nullptr;
  unsigned retries = 0;
  if (VorelPKICryptoCreateToken(type, serial.c_str(), "bench", "12345678", "12345678", 1000, &d) != VOREL_OK ||
      VorelPKICryptoVerifyPwd(d, VOREL_PWD_USER, "12345678", &retries) != VOREL_OK)
    std::exit(1);
  std::string key = read_data("s1.der"), crt = read_data("s1.crt");
  VOREL_CERT* cert = VorelPKICertNewCert(reinterpret_cast<const unsigned char*>(crt.data()), crt.size());
  for (int i = 1; i <= 8; ++i) {
    for (int type : {VOREL_KEYPAIR_SIGN, VOREL_KEYPAIR_ENCRYPT}) {
      VOREL_KEYPAIR* kp = nullptr;
      if (VorelPKICryptoImportKeypair(d, reinterpret_cast<const unsigned char*>(key.data()), key.size(), type, &kp) !=
              VOREL_OK ||
          VorelPKICryptoSetKeypairLabel(kp, ("C" + std::to_string(i)).c_str()) != VOREL_OK ||
          VorelPKICryptoUpdateCertificate(kp, cert) != VOREL_OK)
        std::exit(1);
      VorelPKICryptoFreeKeypair(kp);
    }
  }
  VorelPKICertFreeCert(cert);
  VorelPKICryptoFreeDevice(d);
}

void make_token(int type, const std::string& serial) {
  VOREL_DEVICE* d = nullptr;
  if (VorelPKICryptoCreateToken(type, serial.c_str(), "bench", "12345678", "12345678", 1000, &d) != VOREL_OK) {
    std::fprintf(stderr, "cannot make token %d-%s\n", type, serial.c_str());
    std::exit(1);
  }
  unsigned retries = 0;
  VorelPKICryptoVerifyPwd(d, VOREL_PWD_USER, "12345678", &retries);
  const unsigned char access[4] = {0x04, 0x03, 0x07, 0x03};
  for (unsigned id = 1; id <= 16; ++id) VorelPKICryptoCreateData(d, id, access, 64 * 1024);
  VorelPKICryptoFreeDevice(d);
}

// The first listing in a process that never opened the tokens: what a fresh application pays.
void first_listing() {
  char config[] = R"({"devices":[{"type":4}]})";
  SKF_LoadConfigurationWithContent(config);
  char names[4096];
  ULONG size = sizeof names;
  auto start = std::chrono::steady_clock::now();
  ULONG rc = SKF_EnumDev(TRUE, names, &size);
  double us = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
  std::printf("first SKF_EnumDev of 32 tokens of 1 MiB each in a fresh process: %.0f us (rc 0x%08x)\n", us, rc);
}

}  // namespace

int main(int argc, char** argv) {
  ScratchTokens scratch;
  if (!scratch.ok()) return 1;
  // Tokens are made by another process, so this one starts without any of them open.
  pid_t child = fork();
  if (child == 0) {
    make_token(3, "T00");
    for (int i = 0; i < 32; ++i) make_token(4, "T" + std::to_string(100 + i));
    make_full_token(5, "F00");
    VOREL_DEVICE* d = nullptr;
    if (VorelPKICryptoCreateToken(6, "P00", "bench", "12345678", "12345678", 0, &d) != VOREL_OK) _exit(1);
    VorelPKICryptoFreeDevice(d);
    _exit(0);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || status != 0) return 1;
  vorel::library_attach();
  first_listing();
  char config[] = R"({"devices":[{"type":3}]})";
  SKF_LoadConfigurationWithContent(config);
  char name[] = "3#T00", full[] = "5#F00", pins[] = "6#P00";
  if (SKF_ConnectDev(name, &g_device) != SAR_OK || SKF_ConnectDev(full, &g_full) != SAR_OK ||
      SKF_ConnectDev(pins, &g_pins) != SAR_OK)
    return 1;
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  SKF_DisConnectDev(g_device);
  SKF_DisConnectDev(g_full);
  SKF_DisConnectDev(g_pins);
  vorel::library_detach();
  return 0;
}
