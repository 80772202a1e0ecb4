// alive_inbox.h: what the sites have said of themselves, until the link looks at it.
#ifndef DCH_LINK_ALIVE_INBOX_H
#define DCH_LINK_ALIVE_INBOX_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "dch/link/alive_message.h"
#include "dch/link/live_connection.h"
#include "dch/link/waiting_changes.h"

namespace dch {

// Keeps the last one of each run, and beside them what has changed as far as there is room, so that
// it takes no more memory however much comes. Any thread.
class AliveInbox final : public LiveInbox {
 public:
  static constexpr std::size_t mostSites = 10'000;
  // Of one site: more are not there at a time, whatever happens to it.
  static constexpr std::size_t mostRuns = 4;

  void put(const LiveMessage& message) noexcept override;
  // The same for what came on that subject.
  void put(std::string_view subject, std::string_view body) noexcept;

  // All that has come since, each site's in its order, without its changes.
  std::map<std::string, std::vector<AliveMessage>> take();

  // What all of them have said of their revisions and changes since, in the order in which they
  // came. Without what servers have said that stand aside: another one is the site.
  std::vector<SiteChanges> takeChanges();

  // What was no message of a site, or too much.
  std::uint64_t refused() const;
  // Messages that were kept without their changes, for which there was no room.
  std::uint64_t changesDropped() const;

  // Waits until something comes after all was taken, or somebody rings, so long at most. What came
  // before it was called counts.
  void wait(std::chrono::milliseconds atMost);
  void ring() noexcept;

 private:
  bool keep(std::string_view subject, std::string_view body);

  mutable std::mutex _mutex;
  std::condition_variable _bell;
  bool _isRung = false;
  std::map<std::string, std::vector<AliveMessage>> _heard;
  WaitingChanges _changes;
  std::uint64_t _refused = 0;
};

}  // namespace dch

#endif  // DCH_LINK_ALIVE_INBOX_H
