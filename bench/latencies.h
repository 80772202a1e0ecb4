// latencies.h: how long each of many requests took, for the process that started those who measure.
#ifndef BENCH_LATENCIES_H
#define BENCH_LATENCIES_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

// Of one process or thread; in shared memory.
struct Latencies {
  static constexpr std::size_t maximum = 1'000'000;

  void add(float value) {
    if (count < maximum) microseconds[count++] = value;
  }

  std::size_t count;
  std::array<float, maximum> microseconds;
};

// Of all of them together.
class LatencySummary {
 public:
  void add(const Latencies& latencies) {
    const float* const first = latencies.microseconds.data();
    _all.insert(_all.end(), first, first + latencies.count);
  }

  std::size_t count() const { return _all.size(); }

  // The value that this share of all, below 1, does not exceed.
  float quantile(double share) {
    const auto position =
        _all.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(_all.size()));
    std::nth_element(_all.begin(), position, _all.end());
    return *position;
  }

 private:
  std::vector<float> _all;
};

#endif  // BENCH_LATENCIES_H
