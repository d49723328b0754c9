// SKF files of a software token at the default log level: SKF_WriteFile of 64 bytes and of 4 KiB
// against one flushed atomic replacement of a file the size of the token holding it (a write must
// rewrite the token once, not once per step), and SKF_ReadFile of 4 KiB against
// VorelPKICryptoReadDataEx on the file's contents (the master file is read on every call).
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "exports/frame.h"
#include "exports/lifecycle.h"
#include "platform/platform.h"
#include "ratio.h"
#include "scratch.h"

namespace {

// A token of type 3 holding one file of the size, opened with the user PIN verified.
struct FileToken {
  ULONG size = 0;
  std::string path;  // the token's file
  DEVHANDLE dev = nullptr;
  HAPPLICATION app = nullptr;
};
FileToken g_small, g_page;
char g_name[] = "bench";

bool open_file_token(FileToken& t, ULONG size) {
  std::string serial = "F" + std::to_string(size);
  VOREL_DEVICE* d = nullptr;
  if (VorelPKICryptoCreateToken(3, serial.c_str(), "bench", "12345678", "12345678", 1000, &d) != VOREL_OK) return false;
  VorelPKICryptoFreeDevice(d);
  t.size = size;
  t.path = std::string(getenv("VOREL_TOKEN_DIR")) + "/3-" + serial + ".token";
  std::string devName = "3#" + serial;
  char app[] = "VOREL", pin[] = "12345678";
  ULONG retries = 0;
  return SKF_ConnectDev(&devName[0], &t.dev) == SAR_OK && SKF_OpenApplication(t.dev, app, &t.app) == SAR_OK &&
         SKF_VerifyPIN(t.app, USER_TYPE, pin, &retries) == SAR_OK &&
         SKF_CreateFile(t.app, g_name, size, SECURE_USER_ACCOUNT, SECURE_USER_ACCOUNT) == SAR_OK;
}

void ours_write(benchmark::State& state, const FileToken& t) {
  std::vector<BYTE> data(t.size);
  for (auto _ : state) {
    ++data[0];
    if (SKF_WriteFile(t.app, g_name, 0, data.data(), t.size) != SAR_OK) state.SkipWithError("write failed");
  }
}

void raw_write(benchmark::State& state, const FileToken& t) {
  std::string file;
  vorel::platform::read_file(t.path, file);
  std::string other = t.path + ".raw";
  for (auto _ : state) {
    ++file[100];
    if (!vorel::platform::write_file_atomic(other, file.data(), file.size())) state.SkipWithError("write failed");
  }
  vorel::platform::remove_file(other);
  state.counters["token bytes"] = static_cast<double>(file.size());
}

void Ours_WriteFile64(benchmark::State& state) { ours_write(state, g_small); }
void Raw_WriteFile64(benchmark::State& state) { raw_write(state, g_small); }
void Ours_WriteFile4K(benchmark::State& state) { ours_write(state, g_page); }
void Raw_WriteFile4K(benchmark::State& state) { raw_write(state, g_page); }
BENCHMARK(Raw_WriteFile64);
BENCHMARK(Ours_WriteFile64);
BENCHMARK(Raw_WriteFile4K);
BENCHMARK(Ours_WriteFile4K);

void Ours_ReadFile4K(benchmark::State& state) {
  BYTE out[4096];
  for (auto _ : state) {
    ULONG len = sizeof out;
    if (SKF_ReadFile(g_page.app, g_name, 0, sizeof out, out, &len) != SAR_OK) state.SkipWithError("read failed");
  }
}
BENCHMARK(Ours_ReadFile4K);

void Raw_ReadFile4K(benchmark::State& state) {
  VOREL_DEVICE* device = vorel::find_record<vorel::ApplicationRecord>(g_page.app)->cryptoDevice.get();
  unsigned char out[4096];
  for (auto _ : state) {
    std::size_t len = 0;
    if (VorelPKICryptoReadDataEx(device, 0x1100, 0, out, sizeof out, &len) != VOREL_OK)
      state.SkipWithError("read failed");
  }
}
BENCHMARK(Raw_ReadFile4K);

}  // namespace

int main(int argc, char** argv) {
  ScratchTokens scratch;
  if (!scratch.ok()) return 1;
  vorel::library_attach();
  char config[] = R"({"devices":[{"type":3}]})";
  SKF_LoadConfigurationWithContent(config);
  if (!open_file_token(g_small, 64) || !open_file_token(g_page, 4096)) return 1;
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  for (FileToken* t : {&g_small, &g_page}) {
    SKF_CloseApplication(t->app);
    SKF_DisConnectDev(t->dev);
  }
  vorel::library_detach();
  return 0;
}
