// publisher.h: carries rows and events to their subscribers.
#ifndef DCH_CORE_PUBLISHER_H
#define DCH_CORE_PUBLISHER_H

#include <string>
#include <string_view>
#include <vector>

#include "dch/core/counters.h"
#include "dch/core/log.h"
#include "dch/core/rows_out.h"
#include "dch/core/subscriptions.h"

namespace dch {

// Subscribers that are gone are dropped when the system says so. One that cannot be sent a row at
// once loses that row; nobody waits for it. One thread.
class Publisher {
 public:
  Publisher(Subscriptions& subscriptions, RowsOut& rowsOut, Counters& counters, const Log& log)
      : _subscriptions(subscriptions), _rowsOut(rowsOut), _counters(counters), _log(log) {}

  Subscriptions::Added subscribe(const std::string& topic, const PeerAddress& subscriber);

  // Returns whether there was such a subscription.
  bool withdraw(std::string_view topic, const PeerAddress& subscriber);

  bool hasSubscribers(std::string_view topic) const;

  // Looks whether some of the subscribers are gone, and has looked at all of them after a while. To
  // be called every now and then.
  void lookForGone();

  // Sends the message to every subscriber of the topic.
  void publish(std::string_view topic, std::string_view message);

  // Sends the message to one subscriber of the topic. Returns false when it is none.
  bool publishTo(std::string_view topic, const PeerAddress& subscriber, std::string_view message);

 private:
  void push(std::string_view message, const PeerAddress& address, Subscriber* subscriber);
  void dropGone();

  Subscriptions& _subscriptions;
  RowsOut& _rowsOut;
  Counters& _counters;
  const Log& _log;
  std::vector<PeerAddress> _gone;  // kept for its memory
};

}  // namespace dch

#endif  // DCH_CORE_PUBLISHER_H
