// sides.h: comparisons: sides that take turns in one run, because a machine's speed drifts, and the
// ratios of their medians.
#ifndef BENCH_SIDES_H
#define BENCH_SIDES_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

// Performs that many operations and answers how long they took.
using Run = std::function<std::chrono::nanoseconds(int operations)>;

// Adds a side; its time is shown for one operation.
void addSide(const std::string& name, int operationsPerTurn, Run run);

// Median times of two sides; as rates it is the slower side that stands first.
struct Ratio {
  std::string label;
  std::string numerator;
  std::string denominator;
};

// Runs all sides, with Google Benchmark's arguments, and prints the ratios.
void runSides(int argc, char** argv, const std::vector<Ratio>& ratios);

#endif  // BENCH_SIDES_H
