#include "bench/sides.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

// Prints as usual and keeps the medians.
class MedianReporter : public benchmark::ConsoleReporter {
 public:
  MedianReporter() : ConsoleReporter(OO_None) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs)
      if (run.aggregate_name == "median")
        _medians[run.run_name.function_name] = run.GetAdjustedRealTime();
    ConsoleReporter::ReportRuns(runs);
  }

  const Medians& medians() const { return _medians; }

 private:
  Medians _medians;
};

void measure(benchmark::State& state, const Side& side) {
  for (auto _ : state)
    state.SetIterationTime(std::chrono::duration<double>(side.run(side.operationsPerTurn)).count() /
                           side.operationsPerTurn);
}

}  // namespace

bool isQuick(int argc, char** argv) {
  return argc > 1 && std::strcmp(argv[1], "--quick") == 0;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

Medians runSides(int argc, char** argv, const std::vector<Side>& sides) {
  const bool quick = isQuick(argc, argv);
  for (const Side& side : sides)
    benchmark::RegisterBenchmark(side.name.c_str(),
                                 [&side](benchmark::State& state) { measure(state, side); })
        ->UseManualTime()
        ->Iterations(quick ? 12 : 20)
        ->Repetitions(quick ? 3 : 15);
  char interleaving[] = "--benchmark_enable_random_interleaving=true";
  char aggregates[] = "--benchmark_display_aggregates_only=true";
  char* arguments[] = {argv[0], interleaving, aggregates};
  int count = 3;
  benchmark::Initialize(&count, arguments);
  MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return reporter.medians();
}

void printFigure(const std::string& label, double value) {
  std::printf(value < 1000 ? "= %s: %.3g\n" : "= %s: %.0f\n", label.c_str(), value);
}
