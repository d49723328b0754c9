// Software tokens: listing, opening a well-filled token, writing a data object, signing once
// logged in. Each is set beside the raw work it cannot avoid, as Ours_X / Raw_X.
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
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

// Folders of n tokens of type 9, each with 9 objects of kib KiB, made by another process so that
// this one has never opened them.
std::map<std::pair<int, int>, std::string> g_listDirs;
const int kListings[][2] = {{1, 64}, {32, 64}, {32, 0}};

bool make_list_dirs() {
  for (const auto& listing : kListings) {
    char dir[] = "/tmp/vorel-bench-list-XXXXXX";
    if (!mkdtemp(dir)) return false;
    g_listDirs[{listing[0], listing[1]}] = dir;
    pid_t pid = fork();
    if (pid < 0) return false;
    if (pid == 0) {
      setenv("VOREL_TOKEN_DIR", dir, 1);
      const unsigned char access[4] = {4, 3, 7, 3};
      for (int i = 0; i < listing[0]; ++i) {
        VOREL_DEVICE* d = nullptr;
        unsigned retries = 0;
        std::string serial = "LIST" + std::to_string(i);
        if (VorelPKICryptoCreateToken(9, serial.c_str(), "listed", kPin, kPin, 1000, &d) != VOREL_OK ||
            VorelPKICryptoVerifyPwd(d, VOREL_PWD_USER, kPin, &retries) != VOREL_OK)
          _exit(1);
        for (unsigned id = 0; listing[1] > 0 && id < 9; ++id)
          if (VorelPKICryptoCreateData(d, id, access, static_cast<std::size_t>(listing[1]) * 1024) != VOREL_OK)
            _exit(1);
        VorelPKICryptoFreeDevice(d);
      }
      _exit(0);
    }
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return false;
  }
  return true;
}

// Listing the tokens of a type, as SKF_EnumDev does on every call: per token it reads the head
// of the file only, so the time per token (per_token) does not grow with what the tokens hold.
void Ours_ListTokens(benchmark::State& state) {
  int n = static_cast<int>(state.range(0));
  setenv("VOREL_TOKEN_DIR", g_listDirs[{n, static_cast<int>(state.range(1))}].c_str(), 1);
  for (auto _ : state) {
    VOREL_DEVICE_LIST* list = VorelPKICryptoGetAllDevices(9, VOREL_ENUM_TOKENS);
    if (VorelPKICryptoGetDeviceCount(list) != n) state.SkipWithError("listing failed");
    VorelPKICryptoFreeDevices(list);
  }
  state.counters["per_token"] =
      benchmark::Counter(n, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// What a listing that checks every token costs at least: reading each file whole.
void Raw_ListTokens(benchmark::State& state) {
  std::string dir = g_listDirs[{static_cast<int>(state.range(0)), static_cast<int>(state.range(1))}], file;
  for (auto _ : state) {
    std::vector<std::string> names;
    vorel::platform::list_dir(dir, names);
    for (const std::string& name : names)
      if (name.size() > 6 && name.compare(name.size() - 6, 6, ".token") == 0)
        vorel::platform::read_file(dir + "/" + name, file);
  }
  state.counters["file_bytes"] = static_cast<double>(file.size());
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

void listings(benchmark::internal::Benchmark* b) {
  for (const auto& listing : kListings) b->Args({listing[0], listing[1]});
}
BENCHMARK(Raw_ListTokens)->Apply(listings)->ArgNames({"tokens", "kib"})->Unit(benchmark::kMicrosecond);
BENCHMARK(Ours_ListTokens)->Apply(listings)->ArgNames({"tokens", "kib"})->Unit(benchmark::kMicrosecond);
BENCHMARK(Raw_OpenToken)->Unit(benchmark::kMicrosecond);
BENCHMARK(Ours_OpenToken)->Unit(benchmark::kMicrosecond);
BENCHMARK(Raw_DataObjectWrite)->Unit(benchmark::kMicrosecond);
BENCHMARK(Ours_DataObjectWrite)->Unit(benchmark::kMicrosecond);
BENCHMARK(Raw_TokenSM2Sign)->Unit(benchmark::kMicrosecond);
BENCHMARK(Ours_TokenSM2Sign)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  if (!make_list_dirs()) {
    std::fprintf(stderr, "cannot make the tokens to list\n");
    return 1;
  }
  if (!make_token()) {
    std::fprintf(stderr, "cannot make the bench token\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return 0;
}
