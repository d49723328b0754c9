// SKF_GenRandom (32 bytes, default log level) against the crypto-library call it wraps.
// Prints the ratio of the two in one run.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "core/frame.h"
#include "core/lifecycle.h"

namespace {

vorel::DeviceRecord* g_device = nullptr;

void BM_RawGenerateRandom(benchmark::State& state) {
  unsigned char out[32];
  for (auto _ : state) {
    benchmark::DoNotOptimize(VorelPKICryptoGenerateRandom(g_device->cryptoDevice, sizeof out, out));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_RawGenerateRandom);

void BM_SKF_GenRandom(benchmark::State& state) {
  BYTE out[32];
  for (auto _ : state) {
    benchmark::DoNotOptimize(SKF_GenRandom(g_device, out, sizeof out));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_SKF_GenRandom);

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) times_[r.benchmark_name()] = r.GetAdjustedRealTime();
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    double raw = times_["BM_RawGenerateRandom"], wrapped = times_["BM_SKF_GenRandom"];
    if (raw > 0) std::printf("SKF_GenRandom / raw call: %.2f\n", wrapped / raw);
  }

 private:
  std::map<std::string, double> times_;
};

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
