// site_model.h: a site whose rows a hub collects, as far as the hub can tell.
#ifndef FUZZ_SUPPORT_SITE_MODEL_H
#define FUZZ_SUPPORT_SITE_MODEL_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "dch/link/incoming_rows.h"

namespace fuzz {

using Key = std::pair<unsigned, std::int64_t>;  // of a row: the run, and its number

Key keyOf(const dch::RowName& name);

struct Answer {
  std::deque<dch::RowHeader> rows;
  dch::FetchEnd end;
};

// A file, and a server that publishes from it.
class Site {
 public:
  const std::vector<Key>& rows() const { return _rows; }
  bool has(const Key& key) const;
  std::int64_t position() const { return _position; }
  // How far the server has published, and how far the file says so.
  std::int64_t published() const { return _readUpTo; }
  std::int64_t notedPublished() const { return _noted; }
  void notePublished() { _noted = _readUpTo; }

  // Starts a server that publishes what is behind.
  void start(unsigned run, std::int64_t published);
  Key write(unsigned numbersLeftOut);
  // An older copy of the file is put in its place.
  void goBack(std::int64_t position);
  void removeUpTo(std::int64_t number);
  // None when all is published.
  std::optional<dch::RowHeader> publishNext();
  Answer answer(const std::vector<dch::RowName>& names, std::size_t mostRows) const;

 private:
  Key placeOf(const std::vector<dch::RowName>& names) const;

  std::vector<Key> _rows;
  std::map<std::int64_t, unsigned> _runs;  // by their first positions
  std::int64_t _position = 0;
  std::int64_t _noted = 0;
  unsigned _run = 0;
  bool _hasWritten = false;  // the run has
  std::int64_t _readUpTo = 0;
  std::optional<Key> _previous;
};

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_SITE_MODEL_H
