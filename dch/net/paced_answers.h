// paced_answers.h: answers of more than one datagram, which have to be paced.
#ifndef DCH_NET_PACED_ANSWERS_H
#define DCH_NET_PACED_ANSWERS_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <string>
#include <string_view>

#include "dch/core/counters.h"
#include "dch/core/log.h"
#include "dch/core/message.h"
#include "dch/net/alarm.h"

namespace dch {

// Several answers are under way at a time, each with its own pauses. A receiver gets no more than
// one datagram in a pause, however often it asks: whoever forges its address cannot have it
// flooded. One thread, the loop's.
class PacedAnswers {
 public:
  static constexpr std::size_t defaultCapacity = 64;
  // The pause that receivers count on between the datagrams of a message.
  static constexpr std::chrono::milliseconds defaultPause{1000};

  // Hands one datagram to the system.
  using Send = std::function<void(const Origin& receiver, std::string_view datagram)>;

  PacedAnswers(EventLoop& loop, Send send, Counters& counters, const Log& log,
               std::chrono::milliseconds pause = defaultPause,
               std::size_t capacity = defaultCapacity);

  // Takes an answer. One that is still under way to the same receiver is given up: its datagrams
  // would get into the new one. Returns false when too many are under way, or a quarter of that to
  // the receiver's machine, unless it is this one: nobody else can forge that. Throws
  // std::bad_alloc.
  bool send(const Origin& receiver, std::string_view message);

  // Gives up what is under way to a receiver: it has sent something, so it does not wait for the
  // rest any more, or it is a new client on the port of one that is gone.
  void giveUp(const PeerAddress& receiver);

 private:
  using Clock = Alarm::Clock;

  // It stays until its receiver may be sent something again.
  struct Transfer {
    Origin receiver;
    Clock::time_point due;
    std::string message{};
    std::size_t sent = 0;

    bool isDone() const { return sent == message.size(); }
  };
  using Transfers = std::list<Transfer>;

  Transfers::iterator find(const PeerAddress& receiver);
  bool hasRoomFor(const PeerAddress& receiver) const;
  void sendDue();
  void sendDatagram(Transfer* transfer);
  void waitForNext();

  const Send _send;
  Counters& _counters;
  const Log& _log;
  const std::chrono::milliseconds _pause;
  const std::size_t _capacity;
  Transfers _transfers;
  Alarm _alarm;
};

}  // namespace dch

#endif  // DCH_NET_PACED_ANSWERS_H
