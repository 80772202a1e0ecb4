// publisher.h: carries rows and events to their subscribers.
#ifndef DCH_CORE_PUBLISHER_H
#define DCH_CORE_PUBLISHER_H

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "dch/core/counters.h"
#include "dch/core/log.h"
#include "dch/core/publications.h"
#include "dch/core/rows_out.h"
#include "dch/core/subscriptions.h"

namespace dch {

// Subscribers that are gone are dropped when the system says so. One that cannot be sent a row at
// once loses that row; nobody waits for it. To send to many takes its time: it is done piece by
// piece, in the order of publication. Each row is for those who have subscribed before it is
// published and have not withdrawn when it is their turn. One thread.
class Publisher {
 public:
  // So many datagrams are sent at a time.
  static constexpr std::size_t pieceSize = 64;

  Publisher(Subscriptions& subscriptions, RowsOut& rowsOut, Counters& counters, const Log& log)
      : _subscriptions(subscriptions), _rowsOut(rowsOut), _counters(counters), _log(log) {}

  Subscriptions::Added subscribe(const std::string& topic, const PeerAddress& subscriber);

  // Returns whether there was such a subscription.
  bool withdraw(std::string_view topic, const PeerAddress& subscriber);

  bool hasSubscribers(std::string_view topic) const;

  // Looks whether some of the subscribers are gone. To be called every second or so. Returns
  // whether others are left: to be called again soon, until it has looked at all of them.
  bool lookForGone();

  // Drops the subscribers of which `isToGo` says so. Without memory for that it throws
  // std::bad_alloc, and has dropped none.
  void dropSubscribers(const std::function<bool(const PeerAddress&)>& isToGo);

  // Drops a subscriber that answers what it is sent: only a server does, and it would take rows for
  // its own and push them on, to this one in the end. Returns false for one that was sent nothing.
  bool dropAnswering(const PeerAddress& subscriber);

  // Sends the message, one of `together` that are published at once, to every subscriber of the
  // topic. Where that is much to send it is done when publishMore() is called, and takes memory:
  // without that the message is lost.
  void publish(std::string_view topic, std::string_view message, std::size_t together = 1);

  // Whether more is to be published: what waits takes memory. What is published nevertheless waits,
  // too.
  bool hasRoom() const { return _publications.hasRoom(); }

  // Whether publishMore() is to be called, after others had their turn.
  bool isPublishing() const { return !_publications.empty(); }
  void publishMore();

  // Sends the message to one subscriber of the topic, ahead of what waits for it. Returns false
  // when it is none.
  bool publishTo(std::string_view topic, const PeerAddress& subscriber, std::string_view message);

 private:
  void publishNow(std::string_view message, Subscribers* subscribers);
  void publishLater(std::string_view topic, std::string_view message, Subscribers* receivers);
  std::size_t publishPiece(std::size_t most);
  void pushToAll(std::string_view message, std::span<const PeerAddress> receivers,
                 Subscribers* subscribers);
  void push(std::string_view message, const PeerAddress& address, Subscriber* subscriber);
  void countLost(const PeerAddress& address, Subscriber* subscriber);
  void dropGone();
  void dropAll(const char* reason);
  void drop(const PeerAddress& address, const char* reason);

  Subscriptions& _subscriptions;
  RowsOut& _rowsOut;
  Counters& _counters;
  const Log& _log;
  Publications _publications;
  std::size_t _leftToLookAt = 0;   // whether they are gone
  std::vector<PeerAddress> _gone;  // those that are to be dropped; kept for its memory
};

}  // namespace dch

#endif  // DCH_CORE_PUBLISHER_H
