// Console reporter that prints, for every pair of benchmarks named Ours_<X> and Raw_<X>, the
// ratio of their times in this run: of the medians when the run repeats
// (--benchmark_repetitions), which keeps a noisy machine from deciding the figure.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      std::string name = r.run_name.function_name;
      if (r.run_type == Run::RT_Aggregate) {
        if (r.aggregate_name == "median") medians_[name] = r.GetAdjustedRealTime();
      } else {
        singles_[name] = r.GetAdjustedRealTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    const auto& times = medians_.empty() ? singles_ : medians_;
    for (const auto& [name, ours] : times) {
      if (name.rfind("Ours_", 0) != 0) continue;
      auto raw = times.find("Raw_" + name.substr(5));
      if (raw != times.end() && raw->second > 0)
        std::printf("%-28s ours / raw call: %.2f\n", name.substr(5).c_str(), ours / raw->second);
    }
  }

 private:
  std::map<std::string, double> singles_, medians_;
};
