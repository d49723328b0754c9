// Software tokens: opening a well-filled token, writing a data object, signing once logged in.
// Each is set beside the raw work it cannot avoid, as Ours_X / Raw_X.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "crypto/token.h"
#include "platform/platform.h"
#include "ratio.h"
#include "vorel/vorel_crypto.h"

namespace {

const char kPin[] = "bench-pin";
VOREL_DEVICE* g_token = nullptr;
VOREL_KEYPAIR* g_tokenKey = nullptr;
VOREL_KEYPAIR* g_pseudoKey = nullptr;
std::string g_path;
const unsigned char g_e[32] = {1, 2, 3, 4};

// A token as a busy user has it: 16 key pairs with certificates' worth of room, 9 objects of 64 KiB.
bool make_token() {
  char dir[] = "/tmp/vorel-bench-XXXXXX";
  if (!mkdtemp(dir)) return false;
  setenv("VOREL_TOKEN_DIR", dir, 1);
  g_path = std::string(dir) + "/" + vorel::token::file_name(9, "BENCH");
  unsigned retries = 0;
  if (VorelPKICryptoCreateToken(9, "BENCH", "bench", kPin, kPin, 1000, &g_token) != VOREL_OK ||
      VorelPKICryptoVerifyPwd(g_token, VOREL_PWD_USER, kPin, &retries) != VOREL_OK)
    return false;
  for (int i = 0; i < 16; ++i) {
    VOREL_KEYPAIR* kp = nullptr;
    int alg = i % 4 == 3 ? VOREL_ALG_RSA : VOREL_ALG_SM2;
    if (VorelPKICryptoGenerateKeypair(g_token, alg, alg == VOREL_ALG_RSA ? 2048 : 256, 0,
                                      i % 2 ? VOREL_KEYPAIR_ENCRYPT : VOREL_KEYPAIR_SIGN, &kp) != VOREL_OK)
      return false;
    if (i == 0) {
      g_tokenKey = kp;
    } else {
      VorelPKICryptoFreeKeypair(kp);
    }
  }
  const unsigned char access[4] = {4, 3, 7, 3};
  for (unsigned id = 0x1100; id < 0x1109; ++id)
    if (VorelPKICryptoCreateData(g_token, id, access, 64 * 1024) != VOREL_OK) return false;
  VOREL_DEVICE* pseudo = nullptr;
  VorelPKICryptoGetPseudoDevice(&pseudo);
  return VorelPKICryptoGenerateKeypair(pseudo, VOREL_ALG_SM2, 256, 0, VOREL_KEYPAIR_SIGN, &g_pseudoKey) == VOREL_OK;
}

// Opening: what a process does first with a token it has not seen (lock, read, check, parse).
void Ours_OpenToken(benchmark::State& state) {
  for (auto _ : state) {
    vorel::token::Token t;
    t.path = g_path;
    t.lockPath = g_path.substr(0, g_path.size() - 6) + ".lock";
    vorel::token::Session s(t);
    if (s.status() != VOREL_OK) state.SkipWithError("open failed");
  }
}

// The file read alone.
void Raw_OpenToken(benchmark::State& state) {
  std::string file;
  for (auto _ : state) {
    if (!vorel::platform::read_file(g_path, file)) state.SkipWithError("read failed");
  }
  state.counters["bytes"] = static_cast<double>(file.size());
}

void Ours_DataObjectWrite(benchmark::State& state) {
  unsigned char data[64] = {};
  for (auto _ : state) {
    ++data[0];
    if (VorelPKICryptoWriteDataEx(g_token, 0x1100, 100, data, sizeof data) != VOREL_OK)
      state.SkipWithError("write failed");
  }
}

// One flushed replacement of a file of the token's size.
void Raw_DataObjectWrite(benchmark::State& state) {
  std::string file;
  vorel::platform::read_file(g_path, file);
  std::string other = g_path + ".raw";
  for (auto _ : state) {
    ++file[100];
    if (!vorel::platform::write_file_atomic(other, file.data(), file.size())) state.SkipWithError("write failed");
  }
  vorel::platform::remove_file(other);
}

void sign_loop(benchmark::State& state, VOREL_KEYPAIR* kp) {
  for (auto _ : state) {
    unsigned char* sig = nullptr;
    size_t n = 0;
    VorelPKICryptoSignHash(kp, VOREL_MECH_SM2_SIGN, nullptr, g_e, sizeof g_e, &sig, &n);
    VorelPKICryptoFreeMemory(sig);
  }
}

void Ours_TokenSM2Sign(benchmark::State& state) { sign_loop(state, g_tokenKey); }
// The same signature with a key held in memory by the pseudo device.
void Raw_TokenSM2Sign(benchmark::State& state) { sign_loop(state, g_pseudoKey); }

BENCHMARK(Raw_OpenToken)->Unit(benchmark::kMicrosecond);
BENCHMARK(Ours_OpenToken)->Unit(benchmark::kMicrosecond);
BENCHMARK(Raw_DataObjectWrite)->Unit(benchmark::kMicrosecond);
BENCHMARK(Ours_DataObjectWrite)->Unit(benchmark::kMicrosecond);
BENCHMARK(Raw_TokenSM2Sign)->Unit(benchmark::kMicrosecond);
BENCHMARK(Ours_TokenSM2Sign)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  if (!make_token()) {
    std::fprintf(stderr, "cannot make the bench token\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return 0;
}
