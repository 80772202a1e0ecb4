// own_providers.h: what this site says of its providers to all others.
#ifndef DCH_LINK_OWN_PROVIDERS_H
#define DCH_LINK_OWN_PROVIDERS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "dch/core/provider_fact.h"

namespace dch {

// All that is registered and on line, as lines (see provider_line.h) by their keys, and which of
// them have changed. What it says has a revision. One thread.
class OwnProviders {
 public:
  static constexpr std::size_t mostChangesBytes = std::size_t{32} * 1024;
  static constexpr std::size_t mostAnswerBytes = 60'000;

  // What ChangedProviders tells, in its order. Throws std::bad_alloc: then the same news is to be
  // taken again before the next one.
  void take(const ProviderNews& news);

  // 0 until all is known for the first time, from 1 on then. Rises with each news that changes
  // something.
  std::uint64_t revision() const { return _revision; }

  // From the revision of the call before to the one now, which are the same when nothing has
  // changed, or more than mostChangesBytes of lines: then who has not the revision now has to ask.
  struct Changes {
    std::uint64_t from = 0;
    std::uint64_t to = 0;
    std::string text = {};  // lines with their '\n': some exactly when `to` is higher than `from`
  };
  // For all who listen; it is not told again. Throws std::bad_alloc; nothing has changed then.
  Changes changes();
  // Whether there is something that it has not told.
  bool hasChanges() const { return _told != _revision; }

  struct Piece {
    // That changes() told last, 0 when it has told none yet: then this is not to be sent. The lines
    // are as they are now, but what has changed since is told again: the changes that lead on from
    // here are never missed, nor do they begin before.
    std::uint64_t revision = 0;
    std::string text = {};  // lines in the order of their keys
    bool isAll = false;     // nothing comes behind them
  };
  // The lines behind that of the key, which may be of none, or empty for all of them:
  // mostAnswerBytes at most unless one alone is longer. Throws std::bad_alloc.
  Piece answer(std::string_view key) const;

 private:
  struct Line {
    std::string rest;             // behind the key, with which it begins
    std::uint64_t beginning = 0;  // after which it was told last
  };

  void take(const ProviderFact& fact);
  void removeUntold();
  void note(const std::string& key);
  std::string changedLines() const;

  std::map<std::string, Line, std::less<>> _lines;
  std::uint64_t _beginnings = 0;  // of news that begin anew
  std::uint64_t _revision = 0;
  bool _hasChanged = false;  // since it has this revision

  std::uint64_t _told = 0;         // the revision
  std::set<std::string> _changed;  // keys, since then
  std::size_t _changedBytes = 0;
  bool _areTooMany = false;  // to be told: none is noted
};

}  // namespace dch

#endif  // DCH_LINK_OWN_PROVIDERS_H
