// live_topics.h: which rows of other sites are asked for, as somebody here has subscribed to them.
#ifndef DCH_LINK_LIVE_TOPICS_H
#define DCH_LINK_LIVE_TOPICS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "dch/core/text_map.h"

namespace dch {

// The channel's thread says what is wanted, the link's asks for it. However often that changes, and
// however long the link is away, it takes no more memory than the topics that are wanted.
class LiveTopics {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  static constexpr std::size_t mostAsked = 2'000;
  // Who subscribes again, as when he was started anew, misses nothing.
  static constexpr std::chrono::seconds longestWithoutSubscribers{10};

  // The channel's thread: a topic has got its first subscriber here, or lost its last one. Returns
  // false when there is no room for it; it is asked for when there is. One of which other sites
  // have no rows is left alone.
  bool changed(std::string_view topic, bool isWanted, TimePoint now) noexcept;

  // The link's thread: from now on another connection asks for them.
  void restart() noexcept;
  // What it has to ask for now, and what not any more. Throws std::bad_alloc; then nothing has
  // changed.
  struct Steps {
    std::vector<std::string> toAsk;
    std::vector<std::string> toLetGo;
  };
  Steps next(TimePoint now);

  // Any thread: how often there was no room.
  std::uint64_t refused() const;

 private:
  // Each is in one list. Those that have been left are let go in that order, and sooner than in
  // time when others wait.
  enum class Place { waiting, asked, left };
  struct Topic {
    std::string name;
    Place place = Place::waiting;
    TimePoint leftAt{};
  };
  using List = std::list<Topic>;

  void want(std::string_view name);
  void leave(std::string_view name, TimePoint now) noexcept;
  void move(List::iterator topic, Place to) noexcept;
  List& listOf(Place place) noexcept { return _lists[static_cast<std::size_t>(place)]; }
  void remove(List::iterator topic) noexcept;

  mutable std::mutex _mutex;
  List _lists[3];
  TextMap<List::iterator> _topics;
  std::uint64_t _refused = 0;
};

}  // namespace dch

#endif  // DCH_LINK_LIVE_TOPICS_H
