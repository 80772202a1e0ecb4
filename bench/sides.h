// sides.h: comparisons: sides that take turns in one run, because a machine's speed drifts, and the
// figures that come of them.
#ifndef BENCH_SIDES_H
#define BENCH_SIDES_H

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct Side {
  std::string name;
  int operationsPerTurn;
  // Performs that many operations and answers how long they took.
  std::function<std::chrono::nanoseconds(int operations)> run;
};

// By the sides' names: the median time of one operation in nanoseconds.
using Medians = std::map<std::string, double>;

// Whether the first argument is --quick.
bool isQuick(int argc, char** argv);

// Of at least one value.
double median(std::vector<double> values);

// Runs the sides in turns and shows what Google Benchmark makes of them; if isQuick(), in an eighth
// of the time.
Medians runSides(int argc, char** argv, const std::vector<Side>& sides);

// Prints a figure for the page of figures: "= LABEL: VALUE".
void printFigure(const std::string& label, double value);

#endif  // BENCH_SIDES_H
