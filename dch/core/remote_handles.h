// remote_handles.h: the handles of sources of other sites whose rows are pushed to subscribers
// here.
#ifndef DCH_CORE_REMOTE_HANDLES_H
#define DCH_CORE_REMOTE_HANDLES_H

#include <cstddef>
#include <list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "dch/core/change.h"
#include "dch/core/remote_names.h"
#include "dch/core/text_map.h"
#include "zora/zora.h"

namespace dch {

// A row of another site on its way to subscribers here. Names and message may be any bytes.
struct LiveRow {
  std::string site;
  std::string application;
  std::string group;
  std::string source;
  std::string message;
};

RemoteNames namesOf(const LiveRow& row);

// Has those at hand that were of use lately. Others the store is asked for, and the rows of these
// sources wait meanwhile, so that those of each source stay in their order. It asks nobody itself.
// One thread.
class RemoteHandles {
 public:
  // A site has no more than a quarter of what waits: one with very many sources does not keep the
  // rows of others from being pushed.
  struct Limits {
    std::size_t atHand = 100'000;
    std::size_t rows = 1'000;  // that wait
    std::size_t bytes = std::size_t{4} << 20;
    std::size_t asked = 64;  // sources at a time
  };

  RemoteHandles() : RemoteHandles(Limits()) {}
  explicit RemoteHandles(const Limits& limits) : _limits(limits) {}
  RemoteHandles(const RemoteHandles&) = delete;
  RemoteHandles& operator=(const RemoteHandles&) = delete;

  // That of a source, 0 when the store has no room for it. Nothing: it is not at hand, or rows wait
  // for it; the next one has to wait, too. Throws std::bad_alloc.
  std::optional<ZORA_Long> find(const RemoteNames& names);

  // The row waits for the handle of its source, behind others of it. Returns false when there is no
  // room for it. Throws std::bad_alloc; then the row does not wait.
  bool hold(LiveRow&& row);

  // A source for which the store is to be asked now, each once. Throws std::bad_alloc; it is told
  // by the next call then.
  std::optional<RemoteSourceSeen> toAsk();

  // Of what toAsk() gave. Returns the rows that waited for it, in their order; when the change has
  // no handle they cannot be pushed.
  std::vector<LiveRow> concluded(const RemoteSourceSeen& change, bool isKept) noexcept;

  // Rows that wait.
  std::size_t waiting() const { return _rows; }

 private:
  // One of which rows wait.
  struct Site {
    std::size_t rows = 0;
    std::size_t bytes = 0;
    std::size_t asked = 0;
    bool isFull = false;  // there was no room for a source of it
  };
  struct Source {
    std::pair<const std::string, Site>* site = nullptr;
    std::vector<LiveRow> rows;
  };

  std::size_t mostAsked(const Site& site) const;
  void noteAtHand(ZORA_Long handle) noexcept;

  const Limits _limits;
  TextMap<ZORA_Long> _atHand;
  TextMap<Site> _sites;
  TextMap<Source> _sources;  // of which rows wait
  std::list<Source*> _toAsk;
  std::size_t _rows = 0;
  std::size_t _bytes = 0;
  std::size_t _asked = 0;
  std::string _key;
};

}  // namespace dch

#endif  // DCH_CORE_REMOTE_HANDLES_H
