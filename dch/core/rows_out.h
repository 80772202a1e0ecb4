// rows_out.h: the way to subscribers.
#ifndef DCH_CORE_ROWS_OUT_H
#define DCH_CORE_ROWS_OUT_H

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "dch/core/peer_address.h"

namespace dch {

// Largest message of one datagram, in bytes: clients read no more of one.
constexpr std::size_t maxDatagramBytes = 8192;

// Nothing throws: what cannot be noted for want of memory now is found another time.
class RowsOut {
 public:
  virtual ~RowsOut() = default;

  // Hands one datagram to the system, without waiting. Returns false when it did not take it.
  virtual bool push(std::string_view message, const PeerAddress& receiver) = 0;

  // The same for each receiver in their order; `taken` says of which the system took it.
  virtual void pushToAll(std::string_view message, std::span<const PeerAddress> receivers,
                         std::span<bool> taken) {
    for (std::size_t i = 0; i < receivers.size(); ++i) taken[i] = push(message, receivers[i]);
  }

  // Finds out whether the receiver is gone, as far as that can be seen without sending to it.
  virtual void look([[maybe_unused]] const PeerAddress& receiver) {}

  // Puts into `gone`, which is empty, the receivers that were found gone since the last call:
  // nobody has their port any more.
  virtual void takeGone(std::vector<PeerAddress>* gone) = 0;
};

}  // namespace dch

#endif  // DCH_CORE_ROWS_OUT_H
