// remembering_store.h: a store that outlives cores, and keeps changes when it is told to.
#ifndef FUZZ_SUPPORT_REMEMBERING_STORE_H
#define FUZZ_SUPPORT_REMEMBERING_STORE_H

#include <deque>
#include <functional>
#include <utility>
#include <vector>

#include "dch/core/store.h"

namespace fuzz {

class RememberingStore : public dch::Store {
 public:
  // While it is not slow, a change is kept at once.
  void setSlow(bool isSlow) { _isSlow = isSlow; }
  bool isSlow() const { return _isSlow; }

  void append(dch::Entry* entry, dch::StoreClient* client) override {
    _waiting.emplace_back(std::move(*entry), client);
    if (!_isSlow) concludeFirst(true);
  }
  std::size_t waiting() const override { return _waiting.size(); }

  // Tells all that was ever kept.
  void load(const std::function<void(dch::Change&&)>& take) override {
    for (dch::Change change : _kept) take(std::move(change));
  }

  const dch::Entry& first() const { return _waiting.front().first; }
  void concludeFirst(bool isKept) {
    auto [entry, client] = std::move(_waiting.front());
    _waiting.pop_front();
    if (isKept) _kept.push_back(entry.change);
    client->conclude(std::move(entry), isKept);
  }

  // The process dies: of what waits so much is kept, and nobody is told.
  void die(std::size_t kept) {
    for (; kept > 0 && !_waiting.empty(); --kept) {
      _kept.push_back(std::move(_waiting.front().first.change));
      _waiting.pop_front();
    }
    _waiting.clear();
  }

  const std::vector<dch::Change>& kept() const { return _kept; }

 private:
  bool _isSlow = false;
  std::deque<std::pair<dch::Entry, dch::StoreClient*>> _waiting;
  std::vector<dch::Change> _kept;
};

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_REMEMBERING_STORE_H
