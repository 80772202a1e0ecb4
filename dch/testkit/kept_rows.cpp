#include "dch/testkit/kept_rows.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "dch/testkit/store_test.h"

namespace dch::testkit {

namespace {

// The rows of one source, which come in their order.
class SourceRows {
 public:
  SourceRows(const SourceBook& book, bool removesOld, KeptRows* found)
      : _book(book), _removesOld(removesOld), _found(found) {}

  void take(std::uint32_t number) {
    if (number > _book.sent || number == 0) {
      ++_found->strange;
    } else if (number > _last) {
      if (_last > 0 || !_removesOld) _found->lost += lostBetween(_last, number);
      (number <= _book.acknowledged ? _found->acknowledged : _found->unanswered) += 1;
      _last = number;
      _timesOfLast = 1;
    } else if (number < _last) {
      ++_found->outOfOrder;
    } else {
      const auto sends = _book.sends.find(number);
      const bool isRepeated = sends != _book.sends.end() && ++_timesOfLast <= sends->second;
      ++(isRepeated ? _found->repeated : _found->doubled);
    }
  }
  void finish() const {
    if (_last > 0 || !_removesOld) _found->lost += lostBetween(_last, _book.acknowledged + 1);
  }

 private:
  std::uint64_t lostBetween(std::uint32_t before, std::uint32_t next) const {
    const std::uint32_t end = std::min(next, _book.acknowledged + 1);
    return end > before + 1 ? end - before - 1 : 0;
  }

  const SourceBook& _book;
  const bool _removesOld;
  KeptRows* const _found;
  std::uint32_t _last = 0;
  std::uint32_t _timesOfLast = 0;
};

}  // namespace

void compareRows(const std::string& path, const std::string& view,
                 const std::vector<SourceBook>& sources, KeptRows* found, bool removesOld,
                 const std::string& condition) {
  std::map<std::string, SourceRows> rows;
  for (const SourceBook& source : sources) rows.try_emplace(source.name, source, removesOld, found);
  // The rows of a group come in the order in which they were kept.
  std::istringstream lines(
      query(path, "SELECT source, number FROM \"" + view + "\" WHERE " + condition));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t bar = line.find('|');
    if (bar == std::string::npos) throw std::runtime_error(view + ": " + line);
    const auto known = rows.find(line.substr(0, bar));
    if (known != rows.end())
      known->second.take(static_cast<std::uint32_t>(std::stoul(line.substr(bar + 1))));
    else
      ++found->strange;
  }
  for (const auto& [name, each] : rows) each.finish();
}

}  // namespace dch::testkit
