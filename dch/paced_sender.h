// paced_sender.h: sends answers of more than one datagram, which have to be paced, while others are
// served.
#ifndef DCH_PACED_SENDER_H
#define DCH_PACED_SENDER_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

#include "dch/core/log.h"
#include "dch/core/rows_out.h"

namespace dch {

// Sends from a thread of its own. Several messages are under way at a time, each with its own
// pauses. One that the system does not take is given up. Any thread may use it.
class PacedSender {
 public:
  static constexpr std::size_t defaultCapacity = 64;
  // The pause that receivers count on between the datagrams of a message.
  static constexpr std::chrono::milliseconds defaultPause{1000};

  // `socket` is used by nobody else and outlives the sender, as does `log`.
  PacedSender(RowsOut& socket, const Log& log, std::chrono::milliseconds pause = defaultPause,
              std::size_t capacity = defaultCapacity);
  // What is not sent by then is not sent.
  ~PacedSender();
  PacedSender(const PacedSender&) = delete;
  PacedSender& operator=(const PacedSender&) = delete;

  // Takes a message. One that is still under way to the same receiver is given up: its datagrams
  // would get into the new one. Returns false when too many messages are under way, or without
  // memory.
  bool send(const PeerAddress& receiver, std::string message);

  // Gives up what is under way to a receiver: it has sent something, so it does not wait for the
  // rest any more, or it is a new client on the port of one that is gone.
  void giveUp(const PeerAddress& receiver);

 private:
  using Clock = std::chrono::steady_clock;

  struct Transfer {
    PeerAddress receiver;
    std::string message;
    std::size_t sent = 0;
    Clock::time_point due;
  };
  using Transfers = std::list<Transfer>;

  void run(const std::stop_token& stop);
  Transfers::iterator nextDue();
  void sendDatagram(Transfers::iterator transfer);

  RowsOut& _socket;
  const Log& _log;
  const std::chrono::milliseconds _pause;
  const std::size_t _capacity;

  std::mutex _mutex;  // guards what follows and the socket
  std::condition_variable_any _changed;
  Transfers _transfers;

  std::jthread _thread;  // last: it ends before what it uses
};

}  // namespace dch

#endif  // DCH_PACED_SENDER_H
