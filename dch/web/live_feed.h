// live_feed.h: passes rows and changes of status from the channel's thread to the web's, as they
// come.
#ifndef DCH_WEB_LIVE_FEED_H
#define DCH_WEB_LIVE_FEED_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dch/between/doorbell.h"
#include "dch/between/ring.h"
#include "dch/core/counters.h"
#include "dch/core/registry.h"
#include "dch/core/text_map.h"
#include "dch/web/watched_topic.h"

namespace dch {

struct LiveEvent {
  std::uint64_t topic = 0;  // WatchedTopic::number
  Time time = 0;
  // Of a change of status: registered, unregistered, online, offline; null for a row. A source that
  // a registration takes off line is offline.
  const char* change = nullptr;
  std::string application;  // this and `group` are of a change of status; names that do not apply
  std::string group;        // are empty
  std::string source;
  ZORA_Long handle = 0;  // this and `message` are of a row
  std::string message;   // as it came
};

// A row that nobody watches costs a look-up, and nothing while nothing is watched at all. Neither
// thread ever waits for the other; the memory that each one takes it frees itself. What does not
// fit is counted.
class LiveFeed {
 public:
  static constexpr std::size_t mostEvents = 4'096;
  static constexpr std::size_t mostBytes = std::size_t{16} * 1024 * 1024;  // of messages under way

  // `bell` wakes the web. Both outlive it. Throws std::bad_alloc.
  LiveFeed(Counters& counters, Doorbell& bell);
  LiveFeed(const LiveFeed&) = delete;
  LiveFeed& operator=(const LiveFeed&) = delete;

  // The channel's thread.

  // See Observer.
  void rowKept(const Source& source, std::string_view message, Time time) noexcept;
  void statusChanged(const SourceNames& names, short requestCode) noexcept;

  // From now on what watch() was told last is watched. To be called after that.
  void takeTopics() noexcept;

  // From now on nothing is watched; the web's thread is no more.
  void detach() noexcept;

  // The web's thread.

  using Topics = std::vector<std::shared_ptr<WatchedTopic>>;

  // Watches these topics, each named once, in the place of those before, when inForce() has come to
  // the number that is returned. Returns at once. Throws std::bad_alloc.
  std::uint64_t watch(const Topics& topics);
  std::uint64_t inForce() const { return _inForce.load(std::memory_order_acquire); }

  // Returns whether takeTopics() is to be called now. To be called after watch() and whenever the
  // bell has rung.
  bool offerTopics();

  // The oldest event, null when there is none; take() gives it back.
  const LiveEvent* first() noexcept { return _events.first(); }
  void take() noexcept;

 private:
  struct Watched {
    std::uint64_t number = 0;
    TextMap<std::shared_ptr<WatchedTopic>> topics;
  };

  WatchedTopic* find(std::string_view topic) const noexcept;
  LiveEvent* room(std::size_t messageBytes) noexcept;
  template <class Fill>
  void pass(WatchedTopic* topic, Time time, std::size_t messageBytes, const Fill& fill) noexcept;

  Counters& _counters;
  Doorbell& _bell;
  Ring<LiveEvent> _events{mostEvents};
  std::atomic<const Watched*> _newest{nullptr};
  std::atomic<std::uint64_t> _inForce{0};
  std::atomic<std::uint64_t> _bytesTaken{0};

  // The channel's thread.
  const Watched* _watched = nullptr;
  std::uint64_t _bytesPut = 0;

  // The web's thread. The channel's may look at the offered one, and until that is in force at the
  // one before.
  std::unique_ptr<const Watched> _wanted;
  std::unique_ptr<const Watched> _offered;
  std::unique_ptr<const Watched> _former;
  std::uint64_t _lastNumber = 0;
};

}  // namespace dch

#endif  // DCH_WEB_LIVE_FEED_H
