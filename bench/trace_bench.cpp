// What a trace point costs when its class is off, and what it costs to open a traced function.
#include <benchmark/benchmark.h>

#include "bench/sides.h"
#include "zora/trc1.h"

namespace {

using Clock = std::chrono::steady_clock;

constinit TRC1_Unit trc1Unit{"bench", "ZORDB410"};
constexpr int points = 8;
constexpr int roundsPerTurn = 100'000;

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
Side steps(const char* name, Steps round) {
  return {name, roundsPerTurn, [round](int rounds) -> std::chrono::nanoseconds {
            TRC1_QUIET_FUNCTION("steps");
            int values[points] = {};
            const auto start = Clock::now();
            for (int i = 0; i < rounds; ++i) {
              round(trc1Scope, values);
              benchmark::DoNotOptimize(values);
            }
            return Clock::now() - start;
          }};
}

std::chrono::nanoseconds openTracedFunction(int times) {
  const auto start = Clock::now();
  for (int i = 0; i < times; ++i) {
    TRC1_FUNCTION("openTracedFunction");
    benchmark::DoNotOptimize(trc1Scope.on(TRC1_CLASS_DETAIL));
    TRC1_LEAVE();
  }
  return Clock::now() - start;
}

}  // namespace

int main(int argc, char** argv) {
  Medians medians = runSides(argc, argv,
                             {steps("8 steps with points", stepsWithPoints),
                              steps("8 steps", stepsWithoutPoints),
                              {"open a function", roundsPerTurn, openTracedFunction}});
  printFigure("a trace point that is off, ns",
              (medians["8 steps with points"] - medians["8 steps"]) / points);
  printFigure("opening a traced function, ns", medians["open a function"]);
}
