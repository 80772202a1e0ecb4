// thinning.h: many rows as few: minimum, maximum and mean of their numbers in equal parts of a
// time.
#ifndef DCH_STORE_THINNING_H
#define DCH_STORE_THINNING_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "dch/core/message.h"

namespace dch {

// Of one attribute in one bucket. Without a count the others mean nothing.
struct ThinnedNumber {
  std::uint64_t count = 0;
  std::int64_t minimum = 0;
  std::int64_t maximum = 0;
  double mean = 0;
};

// One thread.
class Thinning {
 public:
  // The time from `from` to `to`, both included, is divided evenly into so many buckets, one at
  // least. `to` is not before `from`. Takes their memory at once.
  Thinning(Time from, Time to, std::size_t buckets, std::size_t attributes);

  // Where a row of this time belongs: the first or the last bucket when it lies outside. Quick for
  // times that are near each other.
  std::size_t bucketOf(Time time) {
    if (time < _currentFrom || time > _currentTo) findBucket(time);
    return _current;
  }

  // A row is in the bucket. The first one gives it its time.
  void addRow(std::size_t bucket, Time time) {
    Bucket& found = _buckets[bucket];
    if (found.rows++ == 0) found.time = time;
  }
  // A number of such a row.
  void add(std::size_t bucket, std::size_t attribute, std::int64_t number) {
    Cell& cell = _cells[bucket * _attributes + attribute];
    if (cell.count++ == 0) {
      cell.minimum = cell.maximum = number;
    } else if (number < cell.minimum) {
      cell.minimum = number;
    } else if (number > cell.maximum) {
      cell.maximum = number;
    }
    cell.sum += number;
  }

  // What is in a bucket. Most have none where there are fewer rows than buckets.
  struct Bucket {
    std::uint64_t rows = 0;
    Time time = 0;
  };
  std::size_t size() const { return _buckets.size(); }
  const Bucket& bucket(std::size_t index) const { return _buckets[index]; }
  ThinnedNumber number(std::size_t bucket, std::size_t attribute) const;

 private:
  __extension__ using Wide = __int128;
  __extension__ using WideUnsigned = unsigned __int128;

  // The sum of as many numbers as a file can hold, whatever they are, and the mean, are exact.
  struct Cell {
    Wide sum = 0;
    std::uint64_t count = 0;
    std::int64_t minimum = 0;
    std::int64_t maximum = 0;
  };

  void findBucket(Time time);
  Time startOf(std::size_t bucket) const;

  const Time _from;
  const Time _to;
  const WideUnsigned _span;
  const std::size_t _attributes;
  std::vector<Bucket> _buckets;
  std::vector<Cell> _cells;  // those of a bucket stand together
  // The bucket that was found last, and its time.
  std::size_t _current = 0;
  Time _currentFrom;
  Time _currentTo;
};

}  // namespace dch

#endif  // DCH_STORE_THINNING_H
