// Console reporter that prints, for every pair of benchmarks named Ours_<X> and Raw_<X>, the
// ratio of their times in this run.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) times_[r.benchmark_name()] = r.GetAdjustedRealTime();
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    for (const auto& [name, ours] : times_) {
      if (name.rfind("Ours_", 0) != 0) continue;
      auto raw = times_.find("Raw_" + name.substr(5));
      if (raw != times_.end() && raw->second > 0)
        std::printf("%-28s ours / raw call: %.2f\n", name.substr(5).c_str(), ours / raw->second);
    }
  }

 private:
  std::map<std::string, double> times_;
};
