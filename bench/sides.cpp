#include "bench/sides.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>

namespace {

constexpr int repetitions = 15;
constexpr int turns = 20;  // in a repetition

// Prints as usual and keeps the medians for the ratios.
class MedianReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs)
      if (run.aggregate_name == "median")
        _medians[run.run_name.function_name] = run.GetAdjustedRealTime();
    ConsoleReporter::ReportRuns(runs);
  }

  void print(const Ratio& ratio) const {
    std::printf("%s: %.3f\n", ratio.label.c_str(),
                _medians.at(ratio.numerator) / _medians.at(ratio.denominator));
  }

 private:
  std::map<std::string, double> _medians;
};

}  // namespace

void addSide(const std::string& name, int operationsPerTurn, Run run) {
  benchmark::RegisterBenchmark(
      name.c_str(),
      [=](benchmark::State& state) {
        for (auto _ : state)
          state.SetIterationTime(std::chrono::duration<double>(run(operationsPerTurn)).count() /
                                 operationsPerTurn);
      })
      ->UseManualTime()
      ->Iterations(turns)
      ->Repetitions(repetitions);
}

void runSides(int argc, char** argv, const std::vector<Ratio>& ratios) {
  std::vector<char*> arguments(argv, argv + argc);
  char interleaving[] = "--benchmark_enable_random_interleaving=true";
  char aggregates[] = "--benchmark_display_aggregates_only=true";
  arguments.insert(arguments.begin() + 1, {interleaving, aggregates});
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  for (const Ratio& ratio : ratios) reporter.print(ratio);
}
