// number_slices.h: works off the rows of a range of numbers, some at a time.
#ifndef DCH_STORE_NUMBER_SLICES_H
#define DCH_STORE_NUMBER_SLICES_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>

namespace dch {

struct NumberRange {
  std::int64_t first = 1;
  std::int64_t last = 0;

  bool isEmpty() const { return first > last; }
};

enum class Direction { forwards, backwards };

// How many numbers make a slice follows from how long the last ones took: rows are of all sizes,
// and of most numbers another group has the row. One thread.
class NumberSlices {
 public:
  using Clock = std::chrono::steady_clock;

  // What becomes of a slice: all of it is done, or all up to the row with this number, or nothing.
  struct Outcome {
    bool isWhole = true;
    std::optional<std::int64_t> upTo = {};
  };

  NumberSlices() = default;
  NumberSlices(const NumberRange& range, Direction direction)
      : _rest(range), _direction(direction) {}

  bool isDone() const { return _rest.isEmpty(); }

  // Calls `task` with one slice after the other until all are done, or one is not, or the next one
  // would not be done before `deadline`. The first one is begun in any case.
  template <class Task>
  void work(Clock::time_point deadline, Task task) {
    for (bool isFirst = true; !isDone(); isFirst = false) {
      const Clock::time_point start = Clock::now();
      if (!isFirst && start + _took > deadline) return;
      const NumberRange slice = next();
      const Outcome outcome = task(slice);
      _took = Clock::now() - start;
      if (!outcome.isWhole) return stop(outcome.upTo);
      leaveBehind(slice);
      if (_took < shortest)
        _size = std::min(_size * 2, largest);
      else if (_took > longest)
        _size = std::max(_size / 2, std::int64_t{1});
    }
  }

 private:
  static constexpr std::chrono::milliseconds shortest{1};
  static constexpr std::chrono::milliseconds longest{3};
  static constexpr std::int64_t largest = std::int64_t{1} << 40;

  NumberRange next() const {
    if (_rest.last - _rest.first < _size) return _rest;
    return _direction == Direction::forwards ? NumberRange{_rest.first, _rest.first + _size - 1}
                                             : NumberRange{_rest.last - _size + 1, _rest.last};
  }

  void leaveBehind(const NumberRange& done) {
    if (_direction == Direction::forwards)
      _rest.first = done.last + 1;
    else
      _rest.last = done.first - 1;
  }

  void stop(std::optional<std::int64_t> upTo) {
    if (upTo)
      leaveBehind({*upTo, *upTo});
    else
      _size = std::max(_size / 4, std::int64_t{1});
  }

  NumberRange _rest;
  Direction _direction = Direction::forwards;
  std::int64_t _size = 1'024;
  Clock::duration _took{0};
};

}  // namespace dch

#endif  // DCH_STORE_NUMBER_SLICES_H
