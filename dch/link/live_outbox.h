// live_outbox.h: live rows on their way from the channel's thread to the link's.
#ifndef DCH_LINK_LIVE_OUTBOX_H
#define DCH_LINK_LIVE_OUTBOX_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "dch/between/ring.h"
#include "dch/link/live_out.h"

namespace dch {

// Neither thread waits for the other. While it is closed rows are thrown away, and counted nowhere:
// nobody can say whether somebody wants them, and who does sees that they are missing.
class LiveOutbox {
 public:
  static constexpr std::size_t mostRows = 4'096;
  static constexpr std::size_t mostBytes = std::size_t{8} << 20;

  // The channel's thread. False: there is no room.
  bool put(OutgoingLiveRow&& row) noexcept;

  // The link's thread.

  // From now on rows are taken in.
  void open() noexcept;
  // What is in it is lost.
  void close() noexcept;

  // The oldest one, null when there is none; take() throws it away.
  const OutgoingLiveRow* first() noexcept { return _rows.first(); }
  void take(bool isSent) noexcept;

  // Any thread.

  bool isOpen() const noexcept { return _isOpen.load(std::memory_order_relaxed); }
  struct Figures {
    std::uint64_t sent = 0;
    std::uint64_t lost = 0;  // after they were put
  };
  Figures figures() const noexcept;

 private:
  void clear() noexcept;

  Ring<OutgoingLiveRow> _rows{mostRows};
  std::uint64_t _bytesPut = 0;
  std::atomic<std::uint64_t> _bytesTaken{0};
  std::atomic<bool> _isOpen{false};
  std::atomic<std::uint64_t> _sent{0};
  std::atomic<std::uint64_t> _lost{0};
};

}  // namespace dch

#endif  // DCH_LINK_LIVE_OUTBOX_H
