// channel.h: the server's side of the data channel: the core, with carriers around it.
#ifndef DCH_NET_CHANNEL_H
#define DCH_NET_CHANNEL_H

#include <span>
#include <string>
#include <string_view>

#include "dch/core/address_ranges.h"
#include "dch/core/core.h"
#include "dch/core/remote_rows_in.h"
#include "dch/net/alarm.h"
#include "dch/net/answer_batch.h"
#include "dch/net/child_programs.h"
#include "dch/net/datagram_port.h"
#include "dch/net/next_turn.h"
#include "dch/net/own_addresses.h"
#include "dch/net/paced_answers.h"
#include "dch/net/port.h"
#include "dch/net/push_socket.h"
#include "dch/net/stream_port.h"
#include "dch/net/watched_socket.h"

namespace dch {

// Who may send requests, and how much of what.
struct ChannelLimits {
  AddressRanges allowed = AddressRanges::everyone();
  StreamLimits streams = {};
};

// One thread, the loop's. What is passed in outlives it.
class Channel : private Answers, private StreamClient {
 public:
  // Takes up what the store has. Throws std::runtime_error or std::bad_alloc.
  Channel(EventLoop& loop, ServedPort&& port, const ChannelLimits& limits, Store& store,
          const ActionRules& actionRules, Counters& counters, const Log& log,
          const Observers& observers = {});

  // From now on clients are served.
  void start();

  // To be called when a program has ended.
  void collectPrograms() noexcept;

  // To be called every second or so.
  void tick() noexcept;

  // Connections from where none are allowed any more are ended, and subscriptions dropped. Throws
  // std::bad_alloc; nothing has changed then.
  void setLimits(const ChannelLimits& limits);

  // Does and answers what has come in already, as far as the store does not keep it waiting; the
  // rest of that is done by drainRest(), which returns whether there was some.
  void drain();
  bool drainRest();

  // See StreamPort::endSending.
  void endSending() { _streams.endSending(); }

  // Sends what is on its way to subscribers, and answers what waited for that.
  void finishPublishing() noexcept;

  // To be called after the store has concluded something.
  void settle() noexcept;

  const Core& core() const { return _core; }
  // Who pushes rows of other sites; settle() is to be called behind them.
  RemoteRowsIn& remoteRows() { return _remoteRows; }
  // What other sites have; consumers are told of it.
  RemoteProviders& remoteProviders() { return _core.remoteProviders(); }

  // Brings its gauges up to date.
  void setGauges() noexcept;

  // Lines for the operator who asks. Throws std::bad_alloc.
  std::string report();
  // The same in short.
  std::string statusLine();

 private:
  // Wakes the core.
  class CoreTimer : public Timer {
   public:
    CoreTimer(EventLoop& loop, std::function<void()> timeIsUp)
        : _alarm(loop, std::move(timeIsUp)) {}
    void start() override;

   private:
    Alarm _alarm;
  };

  void receive(std::span<const Message> datagrams);
  void send(const Origin& receiver, std::string_view message) noexcept override;
  void finished(const Origin& asker) noexcept override { _streams.finished(asker); }
  bool sendLong(const Origin& receiver, std::string_view message) noexcept;

  void received(const Message& message) override { _core.receive(message); }
  void receivedBroken(const Origin& origin) override { _core.receiveBroken(origin); }
  void closed(const Origin& origin) override { _core.connectionClosed(origin); }
  void worked() override { settle(); }
  bool isAllowed(const PeerAddress& peer) override;
  bool isOwn(const PeerAddress& peer);
  void countNotAllowed(const PeerAddress& peer);

  void lookForGone() noexcept;
  void publishMore();
  void receiveFromSubscribers();
  void waitForStore() noexcept;

  Store& _store;
  Counters& _counters;
  const Log& _log;
  AddressRanges _allowed;
  bool _isHeldUp = false;  // until the store catches up
  DatagramPort _datagrams;
  AnswerBatch _answers;
  PacedAnswers _pacedAnswers;
  StreamPort _streams;
  PushSocket _pushSocket;
  WatchedSocket _sentBack;  // to the push socket
  const OwnAddresses _own;
  CoreTimer _timer;
  NextTurn _publishing;
  Alarm _looking;  // for subscribers that are gone
  ChildPrograms _programs;
  Core _core;
  RemoteRowsIn _remoteRows;
};

}  // namespace dch

#endif  // DCH_NET_CHANNEL_H
