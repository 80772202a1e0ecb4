// waiting_datagrams.h: datagrams that have been received and wait to be handled.
#ifndef DCH_NET_WAITING_DATAGRAMS_H
#define DCH_NET_WAITING_DATAGRAMS_H

#include <cstddef>
#include <list>
#include <span>
#include <string>
#include <unordered_map>

#include "dch/core/message.h"

namespace dch {

// To receive a datagram takes a tenth of the time that it takes to do what it asks: a burst that
// the system has no room for has it here. Senders have their turns one after the other, with one
// datagram each, so that one that floods the port delays the others by as much as one that asks
// once. One thread.
class WaitingDatagrams {
 public:
  static constexpr std::size_t mostDatagrams = 10'000;
  static constexpr std::size_t mostBytes = 16 << 20;

  bool empty() const { return _count == 0; }
  bool isFull() const { return _count >= mostDatagrams || _bytes >= mostBytes; }

  // From now on no sender may have more than its share of the room: twice of what is left, so that
  // there is some for others. Without this it may take all.
  void limitShares(bool isLimited) { _sharesAreLimited = isLimited; }

  // Copies it. Returns false when its sender has its share. Throws std::bad_alloc. Nothing is added
  // then. It is not to be called while it is full, but for the rest of what came at one go.
  bool add(const Message& message);

  // Fills `messages` with those whose turn it is, as far as there are some; returns their number.
  // They are valid until the next call.
  std::size_t take(std::span<Message> messages);

 private:
  struct Datagram {
    std::string bytes;
    Message message;  // but for its bytes
  };
  using Datagrams = std::list<Datagram>;

  struct Sender {
    PeerAddress address;
    Datagrams datagrams;  // the oldest first
    std::size_t bytes = 0;
  };
  using Senders = std::list<Sender>;

  Sender& addSender(const PeerAddress& address);
  bool hasItsShare(const Sender& sender) const;
  void takeFrom(Senders::iterator sender);

  Senders _senders;  // in the order of their turns; each has a datagram
  std::unordered_map<PeerAddress, Senders::iterator, PeerAddressHash> _find;
  Datagrams _taken;
  std::size_t _count = 0;
  std::size_t _bytes = 0;
  bool _sharesAreLimited = false;
};

}  // namespace dch

#endif  // DCH_NET_WAITING_DATAGRAMS_H
