// core.h: what the server knows and decides, without a socket, a clock or a thread of its own.
#ifndef DCH_CORE_CORE_H
#define DCH_CORE_CORE_H

#include <functional>
#include <string>

#include "dch/core/catalogue.h"
#include "dch/core/changes_under_way.h"
#include "dch/core/counters.h"
#include "dch/core/deferrals.h"
#include "dch/core/held_changes.h"
#include "dch/core/observers.h"
#include "dch/core/postponed_requests.h"
#include "dch/core/programs.h"
#include "dch/core/publisher.h"
#include "dch/core/remote_providers.h"
#include "dch/core/request_counts.h"
#include "dch/core/requests.h"
#include "dch/core/responder.h"
#include "dch/core/rows_out.h"
#include "dch/core/store.h"
#include "dch/core/subscriptions.h"
#include "dch/core/timer.h"

namespace dch {

// What the core works through. Each outlives it, and none calls it back from within a call, but
// for a store that keeps a change at once.
struct Ports {
  Answers& answers;
  RowsOut& rowsOut;
  Store& store;
  Timer& timer;
  Programs& programs;
  Observers observers = {};
};

// The one place that has the order: a request is checked, its change is kept, then applied,
// answered and published. One thread.
class Core : private StoreClient {
 public:
  // `actionRules`, which may change between two calls, `counters` and `log` outlive the core.
  Core(const Ports& ports, const ActionRules& actionRules, Counters& counters, const Log& log);
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  // Takes up what the store has, before anything else. Throws std::bad_alloc.
  void load();

  // Does what a message asks, whatever is in it. The bytes are not needed afterwards.
  void receive(const Message& message) noexcept;

  // Does what follows from a datagram that came back where rows are pushed from.
  void receiveFromSubscriber(const Message& message) noexcept;

  // What came on a connection was no whole message.
  void receiveBroken(const Origin& origin) noexcept;

  void connectionClosed(const Origin& origin) noexcept;

  // Of a program that Programs::start has started, with its result.
  void programEnded(ZORA_Long id, ZORA_Long status, Time now) noexcept;

  // See Publisher::lookForGone.
  bool lookForGoneSubscribers() noexcept { return _publisher.lookForGone(); }

  // See Publisher::dropSubscribers.
  void dropSubscribers(const std::function<bool(const PeerAddress&)>& isToGo) {
    _publisher.dropSubscribers(isToGo);
  }

  // A row of another site, whole and with a handle of its own here, goes to who has subscribed. It
  // is neither kept nor known, and nobody who looks on is told. To be called while there is room:
  // else the rows of this server's own providers wait for it.
  void publishRemote(std::string_view topic, std::string_view message) noexcept {
    _publisher.publish(topic, message);
  }
  bool hasSubscribers(std::string_view topic) const { return _publisher.hasSubscribers(topic); }
  bool hasRoomToPublish() const { return _publisher.hasRoom(); }

  // Whether publishMore() is to be called: rows or events are on their way to many subscribers, and
  // go on after others had their turn.
  bool isPublishing() const {
    return _publisher.isPublishing() || !_held.empty() || _snapshots.areAdvancing();
  }
  void publishMore() noexcept;
  void finishPublishing() noexcept;

  // How many changes wait for the store, or until what they cause can be published.
  std::size_t changesWaiting() const { return _ports.store.waiting() + _held.size(); }

  // What Timer::start asked for.
  void timeIsUp() noexcept;

  // Brings the gauges of what it knows up to date.
  void setGauges() noexcept;

  // Lines for the operator who asks, with the gauges as they were set. Throws std::bad_alloc.
  std::string report() const;

  const Registry& registry() const { return _registry; }

  // What other sites have: consumers are told of it, too. What it is told, and when it settles, is
  // the caller's.
  RemoteProviders& remoteProviders() { return _remoteProviders; }

  const Deferrals& deferrals() const { return _deferrals; }
  const RequestCounts& requestCounts() const { return _requestCounts; }
  std::size_t subscriptionCount() const { return _subscriptions.size(); }

 private:
  void ignoreAnswer(const Message& message);
  bool receiveAgain(const Message& message) noexcept;
  Reply check(const RequestType& type, Request request) noexcept;
  void carryOut(const Asked& asked, Reply&& reply);

  void keep(Change&& change, const Origin& origin = {}, const RequestType* type = nullptr) noexcept;
  Claim claimOf(const Change& change) const;
  Prepared prepare(const Change& change);
  void conclude(Entry&& entry, bool kept) noexcept override;
  void carryOn(Entry&& entry, bool kept) noexcept;
  void abandon(const Entry& entry, std::string_view reason);

  void apply(Registered&& change, Entry&& entry);
  void apply(Unregistered&& change, Entry&& entry);
  void apply(WentOnline&& change, Entry&& entry);
  void apply(WentOffline&& change, Entry&& entry);
  void apply(Row&& change, Entry&& entry);
  void apply(Deferred&& change, Entry&& entry);
  void apply(ActionStarted&& change, Entry&& entry);
  void apply(ActionEnded&& change, Entry&& entry);
  // These are for the store alone.
  void apply(RowsPublished&&, Entry&&) {}
  void apply(RemoteRows&&, Entry&&) {}
  void apply(StreamRead&&, Entry&&) {}
  void apply(RemoteSourceSeen&&, Entry&&) {}
  void acknowledge(const Entry& entry, const Applied& applied);
  void publishEvents(const Entry& entry, const Applied& applied);
  void publishEvent(const SourceNames& names, short code, std::size_t together);

  void startTimer();

  const Ports _ports;
  Counters& _counters;
  const Log& _log;
  RequestCounts _requestCounts;
  Responder _responder;
  Registry _registry;
  RemoteProviders _remoteProviders;
  Catalogue _catalogue{{_registry, _remoteProviders}};
  ChangesUnderWay _underWay;
  PostponedRequests _postponed;
  Subscriptions _subscriptions;
  Publisher _publisher;
  HeldChanges _held;
  StatusSnapshots _snapshots;
  Actions _actions;
  Deferrals _deferrals;
  bool _timerRuns = false;
};

}  // namespace dch

#endif  // DCH_CORE_CORE_H
