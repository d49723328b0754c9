// SKF_GenRandom (32 bytes, default log level) against the crypto-library call it wraps.
// Prints the ratio of the two in one run (SKF_GenRandom / raw call).
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "core/frame.h"
#include "core/lifecycle.h"
#include "ratio.h"

namespace {

vorel::DeviceRecord* g_device = nullptr;

void Raw_GenRandom(benchmark::State& state) {
  unsigned char out[32];
  for (auto _ : state) {
    benchmark::DoNotOptimize(VorelPKICryptoGenerateRandom(g_device->cryptoDevice, sizeof out, out));
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

}  // namespace

int main(int argc, char** argv) {
  // The default level: the variable unset, so DEBUG tracing is off but checked on every call.
  unsetenv("VOREL_SKF_LOG_LEVEL");
  vorel::library_attach();
  g_device = vorel::device_record_new(3);
  VorelPKICryptoDupDevice(vorel::pseudo_device(), &g_device->cryptoDevice);
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  vorel::device_record_free(g_device);
  vorel::library_detach();
  return 0;
}
