// waiting_datagrams.h: datagrams that have been received and wait to be handled.
#ifndef DCH_NET_WAITING_DATAGRAMS_H
#define DCH_NET_WAITING_DATAGRAMS_H

#include <cstddef>
#include <deque>
#include <span>
#include <string>

#include "dch/core/message.h"

namespace dch {

// To receive a datagram takes a tenth of the time that it takes to do what it asks: a burst that
// the system has no room for has it here. One thread.
class WaitingDatagrams {
 public:
  static constexpr std::size_t mostDatagrams = 10'000;
  static constexpr std::size_t mostBytes = 16 << 20;

  bool empty() const { return _datagrams.empty(); }
  bool isFull() const { return _datagrams.size() >= mostDatagrams || _bytes >= mostBytes; }

  // Copies it. Throws std::bad_alloc; nothing is added then.
  void add(const Message& message);

  // Fills `messages` with the oldest ones, as far as there are some; returns their number. They are
  // valid until they are removed.
  std::size_t peek(std::span<Message> messages) const;
  void remove(std::size_t count);

 private:
  struct Datagram {
    std::string bytes;
    Message message;  // but for its bytes
  };

  std::deque<Datagram> _datagrams;
  std::size_t _bytes = 0;
};

}  // namespace dch

#endif  // DCH_NET_WAITING_DATAGRAMS_H
