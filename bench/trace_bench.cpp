// What a trace point costs when its class is off, and what it costs to open a traced function.
#include <benchmark/benchmark.h>

#include "zora/trc1.h"

namespace {

constinit TRC1_Unit trc1Unit{"bench", "ZORDB410"};
constexpr int points = 8;

// The same steps with and without trace points. The values come from memory, as they do in real
// code, so that the compiler can neither drop the points nor join them.
[[gnu::noinline]] void stepsWithPoints(const TRC1_Scope& trc1Scope, int* values) {
  for (int i = 0; i < points; ++i) {
    TRC1_DETAIL("value %d of %p\n", values[i], TRC1_Pointer(values));
    benchmark::ClobberMemory();
    values[i] += 1;
  }
}

[[gnu::noinline]] void stepsWithoutPoints(const TRC1_Scope&, int* values) {
  for (int i = 0; i < points; ++i) {
    benchmark::ClobberMemory();
    values[i] += 1;
  }
}

template <class Steps>
void measure(benchmark::State& state, Steps steps) {
  TRC1_QUIET_FUNCTION("measure");
  int values[points] = {};
  for (auto _ : state) {
    steps(trc1Scope, values);
    benchmark::DoNotOptimize(values);
  }
  state.SetItemsProcessed(state.iterations() * points);
  state.counters["per_point"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * points,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void eightStepsWithPointsOff(benchmark::State& state) {
  measure(state, stepsWithPoints);
}
void eightStepsWithoutPoints(benchmark::State& state) {
  measure(state, stepsWithoutPoints);
}

void openTracedFunction(benchmark::State& state) {
  for (auto _ : state) {
    TRC1_FUNCTION("openTracedFunction");
    benchmark::DoNotOptimize(trc1Scope.on(TRC1_CLASS_DETAIL));
    TRC1_LEAVE();
  }
}

BENCHMARK(eightStepsWithPointsOff);
BENCHMARK(eightStepsWithoutPoints);
BENCHMARK(openTracedFunction);

}  // namespace
