// answer_batch.h: sends many datagrams with one call of the system.
#ifndef DCH_NET_ANSWER_BATCH_H
#define DCH_NET_ANSWER_BATCH_H

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <memory>
#include <string_view>

#include "dch/core/counters.h"
#include "dch/core/log.h"
#include "dch/core/message.h"
#include "dch/core/rows_out.h"

namespace dch {

// Collects answers until there are many or flush() is called. One thread.
class AnswerBatch {
 public:
  // `socket` is what they leave from; it stays its owner's.
  AnswerBatch(int socket, Counters& counters, const Log& log);
  AnswerBatch(const AnswerBatch&) = delete;
  AnswerBatch& operator=(const AnswerBatch&) = delete;

  // Takes an answer of at most maxDatagramBytes. It will leave from the address that its request
  // was sent to.
  void add(const Origin& receiver, std::string_view message) noexcept;

  // What the system does not take is dropped and counted.
  void flush() noexcept;

 private:
  static constexpr std::size_t capacity = 32;
  static constexpr std::size_t byteCapacity = 4 * maxDatagramBytes;

  struct Slot {
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in_pktinfo))> details;
    sockaddr_in receiver;
    iovec part;
    Origin origin;
  };

  const int _socket;
  Counters& _counters;
  const Log& _log;
  const std::unique_ptr<char[]> _bytes;
  const std::unique_ptr<Slot[]> _slots;
  std::array<mmsghdr, capacity> _headers{};
  std::size_t _count = 0;
  std::size_t _byteCount = 0;
};

}  // namespace dch

#endif  // DCH_NET_ANSWER_BATCH_H
