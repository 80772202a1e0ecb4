// datagram_batch.h: takes up many datagrams with one call of the system.
#ifndef DCH_NET_DATAGRAM_BATCH_H
#define DCH_NET_DATAGRAM_BATCH_H

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "dch/core/message.h"
#include "dch/core/rows_out.h"

namespace dch {

// One thread.
class DatagramBatch {
 public:
  // Enough that the call costs little for each, few enough that the first ones do not wait long.
  static constexpr std::size_t capacity = 32;

  // Has the system tell with the datagrams of `socket` how many it has thrown away before them,
  // and, where the socket serves all addresses of the machine, which one each was sent to. Throws
  // std::system_error.
  static void askForDetails(int socket);

  DatagramBatch();
  DatagramBatch(const DatagramBatch&) = delete;
  DatagramBatch& operator=(const DatagramBatch&) = delete;

  // Takes what has come in on `socket`, without waiting; returns the number.
  std::size_t receive(int socket);

  // Valid until the next receive(). One longer than maxDatagramBytes is not whole.
  Message message(std::size_t number, Time receivedAt) const;

  // Of all that was received last.
  std::size_t byteCount() const;

  // How many of the socket's datagrams the system has thrown away, as it told with the first and
  // with the last ones; 0 where it told nothing. It counts to 2^32, from when the socket was
  // opened.
  std::uint32_t thrownAwayBefore() const { return _thrownAwayBefore; }
  std::uint32_t thrownAway() const { return _thrownAway; }

 private:
  struct Slot {
    std::array<char, maxDatagramBytes> bytes;
    alignas(cmsghdr) std::array<char, 64> details;
    sockaddr_in sender;
    iovec part;
    std::uint32_t localAddress;
  };

  void readDetails(std::size_t number);

  const std::unique_ptr<Slot[]> _slots;
  std::array<mmsghdr, capacity> _headers{};
  std::size_t _count = 0;
  std::uint32_t _thrownAwayBefore = 0;
  std::uint32_t _thrownAway = 0;
};

}  // namespace dch

#endif  // DCH_NET_DATAGRAM_BATCH_H
