// live_out.h: the rows of this server that somebody elsewhere wants.
#ifndef DCH_LINK_LIVE_OUT_H
#define DCH_LINK_LIVE_OUT_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "dch/core/epoch.h"
#include "dch/core/observer.h"
#include "dch/core/text_map.h"
#include "dch/link/live_interest.h"

namespace dch {

// One that is to be published.
struct OutgoingLiveRow {
  std::string subject;
  std::string header;          // Zord-Live
  std::string message;         // as its provider sent it
  std::size_t group = 0;       // of LiveInterest
  std::uint64_t question = 0;  // not 0: it asks this one, with a reply subject
};

// Looks on at what the core does, on its thread: rows are kept when they are told.
class LiveOut final : public Observer {
 public:
  // Far above what a suite has. Rows of further groups do not go out.
  static constexpr std::size_t mostGroups = 2'000;

  // `put` takes a row away without waiting; false: there is no room for it. It does not throw.
  LiveOut(std::string site, const Epoch& run, std::function<bool(OutgoingLiveRow&&)> put)
      : _site(std::move(site)), _run(run), _put(std::move(put)) {}

  // Any thread may tell its answers.
  LiveInterest& interest() { return _interest; }

  // Rows for which there was no room, or none for their group.
  std::uint64_t lost() const { return _lost; }

  void rowKept(const Source& source, std::string_view message, std::string_view former,
               Time time) noexcept override;
  void statusChanged(const SourceNames&, short) noexcept override {}

 private:
  struct Group {
    std::size_t number = 0;
    std::string subject;
    std::uint64_t rows = 0;  // that were to go out
  };

  Group* find(const Source& source);

  const std::string _site;
  const Epoch _run;
  const std::function<bool(OutgoingLiveRow&&)> _put;
  TextMap<Group> _groups;  // of topics
  LiveInterest _interest{mostGroups};
  std::uint64_t _lost = 0;
};

}  // namespace dch

#endif  // DCH_LINK_LIVE_OUT_H
