#include "dch/core/core.h"

#include <new>
#include <utility>

#include "dch/core/state_report.h"
#include "dch/core/status_events.h"
#include "zordchcl/messages.h"

namespace dch {

namespace {

constexpr char noMemory[] = "no memory";

bool lengthWordIsRight(const Message& message) {
  return message.isWhole && message.bytes.size() >= ZOR0_LENGTH_WORD_SIZE &&
         ZOR0_MessageLength(message.bytes.data()) == message.bytes.size();
}

// Whether the message is what this server itself answers. Such a message is never answered: two
// servers that are made to believe that the other one asked would never stop.
bool isAnswer(const Message& message) {
  std::string_view text;
  if (FieldReader(message.bytes).readResponse(&text)) return true;
  FieldReader fields(message.bytes);
  ZORA_Long value;
  if (!fields.readLong(DCH_status, &value)) return false;
  return fields.atEnd() || (fields.readLong(DCH_handle, &value) && fields.atEnd());
}

// The code that every request begins with.
struct Opened {
  explicit Opened(std::string_view message) : fields(message) {
    hasCode = fields.readShort(DCH_requestType, &code);
  }

  FieldReader fields;  // behind the code
  short code = 0;
  bool hasCode;
};

template <class... Handlers>
struct Overloaded : Handlers... {
  using Handlers::operator()...;
};
template <class... Handlers>
Overloaded(Handlers...) -> Overloaded<Handlers...>;

}  // namespace

Core::Core(const Ports& ports, const ActionRules& actionRules, Counters& counters, const Log& log)
    : _ports(ports),
      _counters(counters),
      _log(log),
      _responder(ports.answers, _requestCounts, counters, log),
      _subscriptions(Subscriptions::defaultCapacity, ports.observers),
      _publisher(_subscriptions, ports.rowsOut, counters, log),
      _held(_registry, _publisher),
      _snapshots(_registry, _remoteProviders, _publisher),
      _actions(actionRules, ports.programs, counters, log),
      _deferrals(counters) {
  // Who looks on is told of this server's own alone.
  _remoteProviders.setTold([this](const SourceNames& names, short code) {
    if (_publisher.hasSubscribers(statusTopic))
      _publisher.publish(statusTopic, StatusEvent(names, code).message());
  });
}

void Core::load() {
  _ports.store.load([this](Change&& change) {
    Prepared prepared = prepare(change);
    std::visit(
        Overloaded{[&](Row&& row) { _registry.apply(&row); },
                   [&](Deferred&& deferred) { _deferrals.add(std::move(deferred.deferral)); },
                   [&](ActionStarted&& started) { _actions.restore(started); },
                   [&](ActionEnded&& ended) { _actions.restore(ended); }, [](RowsPublished&&) {},
                   [](RemoteRows&&) {}, [](StreamRead&&) {}, [](RemoteSourceSeen&&) {},
                   [&]<class Other>(Other&& other) {
                     _registry.apply(std::forward<Other>(other), std::move(prepared));
                   }},
        std::move(change));
  });
}

void Core::receive(const Message& message) noexcept {
  if (message.origin.isDatagram() && lengthWordIsRight(message) && isAnswer(message)) {
    ignoreAnswer(message);
    return;
  }
  const Opened opened(message.bytes);
  const Asked asked{message.origin, requestTypeOf(opened.code), opened.code};
  if (opened.code == DCH_REQUEST_DATA) _counters.add(Counter::rowsReceived);
  if (!opened.hasCode) {
    carryOut(asked, Refusal{DCH_STATUS_MALFORMED, "no request code"});
  } else if (!lengthWordIsRight(message)) {
    carryOut(asked, Refusal{DCH_STATUS_MALFORMED, "not as long as its length word says"});
  } else {
    Reply reply = check(asked.type, {message, opened.fields});
    const auto* const postponed = std::get_if<Postponed>(&reply);
    if (postponed == nullptr)
      carryOut(asked, std::move(reply));
    else if (!_postponed.add(postponed->application, message))
      carryOut(asked, Refusal{DCH_STATUS_NOT_STORED, "too many requests wait"});
  }
  startTimer();
}

// A forged sender can have a subscriber dropped: by who knows its address, when it follows rows,
// and the port that they come from. It loses what is pushed until it subscribes again, no more than
// to a withdrawal that is forged in the same way.
void Core::receiveFromSubscriber(const Message& message) noexcept {
  if (!lengthWordIsRight(message) || !isAnswer(message) ||
      !_publisher.dropAnswering(message.origin.peer))
    ignoreAnswer(message);
}

void Core::ignoreAnswer(const Message& message) {
  _counters.add(Counter::answersIgnored);
  _log.write("answer from %s ignored", message.origin.peer.text().data());
}

// One that was postponed. Returns false when it still has to wait.
bool Core::receiveAgain(const Message& message) noexcept {
  const Opened opened(message.bytes);
  const RequestType& type = requestTypeOf(opened.code);
  Reply reply = check(type, {message, opened.fields});
  if (std::holds_alternative<Postponed>(reply)) return false;
  carryOut({message.origin, type, opened.code}, std::move(reply));
  return true;
}

Reply Core::check(const RequestType& type, Request request) noexcept {
  try {
    return type.handle({_registry, _remoteProviders, _catalogue, _underWay, _postponed, _publisher,
                        _snapshots, _actions, _log, _counters},
                       &request);
  } catch (const std::bad_alloc&) {
    return Refusal{DCH_STATUS_NOT_STORED, noMemory};
  }
}

void Core::carryOut(const Asked& asked, Reply&& reply) {
  std::visit(
      Overloaded{
          [&](NoAnswer) { _requestCounts.add(asked.type, DCH_STATUS_OK); },
          [&](const Refusal& refusal) { _responder.refuse(asked, refusal.status, refusal.reason); },
          [&](const Result& result) { _responder.sendResult(asked, result); },
          [&](const ActionResult& each) { _responder.sendActionResult(asked.origin, each.result); },
          [&](const Text& text) { _responder.sendText(asked, text.text); },
          [](Waits) {},  // counted when it is answered
          [](const Postponed&) {},
          [&](Change& change) { keep(std::move(change), asked.origin, &asked.type); }},
      reply);
  if (!std::holds_alternative<Change>(reply)) _responder.finish(asked.origin);
}

void Core::receiveBroken(const Origin& origin) noexcept {
  _counters.add(Counter::brokenMessages);
  _log.write("broken message from %s", origin.peer.text().data());
  _responder.sendResult({origin, requestTypeOf(0), 0}, {DCH_STATUS_MALFORMED});
}

void Core::connectionClosed(const Origin& origin) noexcept {
  _log.write("connection of %s closed", origin.peer.text().data());
  _actions.forgetWaiters(origin.connection);
}

void Core::programEnded(ZORA_Long id, ZORA_Long status, Time now) noexcept {
  _actions.programEnded(id, status);
  keep(ActionEnded{id, now, status});
}

void Core::timeIsUp() noexcept {
  _timerRuns = false;
  _snapshots.advance();
  startTimer();
}

void Core::setGauges() noexcept {
  const RegistryFigures known = _registry.figures();
  _counters.set(Counter::applications, known.applications);
  _counters.set(Counter::sources, known.sources);
  _counters.set(Counter::sourcesOnline, known.sourcesOnline);
  _counters.set(Counter::subscriptions, _subscriptions.size());
  _counters.set(Counter::changesWaiting, changesWaiting());
}

std::string Core::report() const {
  return stateReport(_registry, _deferrals, _requestCounts, _counters);
}

// What a change takes is had before it is kept, so that what is kept can be applied.
void Core::keep(Change&& change, const Origin& origin, const RequestType* type) noexcept {
  Entry entry{std::move(change), origin, type};
  try {
    entry.claim = claimOf(entry.change);
    entry.prepared = prepare(entry.change);
    _underWay.add(entry.claim);
    _ports.store.append(&entry, this);
  } catch (const std::bad_alloc&) {
    _underWay.remove(entry.claim);
    abandon(entry, noMemory);
  }
}

Claim Core::claimOf(const Change& change) const {
  return std::visit(
      Overloaded{[](const Registered& each) { return Claim{each.registration.applName}; },
                 [](const Unregistered& each) { return Claim{each.application}; },
                 [](const WentOnline& each) {
                   return Claim{each.application, each.handle};
                 },
                 [this](const WentOffline& each) {
                   const Source* const source = _registry.findSource(each.handle);
                   return source != nullptr
                              ? Claim{std::string(source->names().application), each.handle}
                              : Claim{};
                 },
                 [](const auto&) { return Claim{}; }},
      change);
}

Prepared Core::prepare(const Change& change) {
  return std::visit(
      Overloaded{[](const Row&) { return Prepared{}; }, [](const Deferred&) { return Prepared{}; },
                 [](const ActionStarted&) { return Prepared{}; },
                 [](const ActionEnded&) { return Prepared{}; },
                 [](const RowsPublished&) { return Prepared{}; },
                 [](const RemoteRows&) { return Prepared{}; },
                 [](const StreamRead&) { return Prepared{}; },
                 [](const RemoteSourceSeen&) { return Prepared{}; },
                 [this](const auto& each) { return _registry.prepare(each); }},
      change);
}

// More rows than can be passed on are not lost: they are acknowledged later, as those are that wait
// for a slow store, which holds up who sends them.
void Core::conclude(Entry&& entry, bool kept) noexcept {
  try {
    if (_held.take(&entry, kept)) return;
  } catch (const std::bad_alloc&) {
    // All of them are acknowledged now, in their order; what they cause may be lost.
    while (!_held.empty()) {
      auto [first, isKept] = _held.takeFirst();
      carryOn(std::move(first), isKept);
    }
  }
  carryOn(std::move(entry), kept);
}

void Core::carryOn(Entry&& entry, bool kept) noexcept {
  _underWay.remove(entry.claim);
  if (kept) {
    std::visit([&](auto& change) { apply(std::move(change), std::move(entry)); }, entry.change);
    if (entry.request != nullptr) _responder.finish(entry.origin);
  } else {
    abandon(entry, "the store did not keep it");
  }
  if (!entry.claim.application.empty())
    _postponed.resume(entry.claim.application,
                      [this](const Message& message) { return receiveAgain(message); });
}

void Core::publishMore() noexcept {
  _snapshots.advanceOne();
  startTimer();
  _publisher.publishMore();
  for (std::size_t i = 0; i < Publisher::pieceSize; ++i) {
    std::optional<HeldChanges::Concluded> released = _held.release();
    if (!released) return;
    carryOn(std::move(released->entry), released->kept);
  }
}

void Core::finishPublishing() noexcept {
  while (isPublishing()) publishMore();
}

void Core::abandon(const Entry& entry, std::string_view reason) {
  _counters.add(Counter::changesNotKept);
  std::visit(
      Overloaded{[&](const Registered& each) { _registry.abandon(each); },
                 [&](const ActionStarted& each) {
                   _responder.sendActionResult(_actions.abandon(each.id), DCH_STATUS_NOT_STORED);
                 },
                 [&](const ActionEnded& each) {
                   _responder.sendActionResult(_actions.abandon(each.id), DCH_STATUS_NOT_STORED);
                 },
                 [](const auto&) {}},
      entry.change);
  if (entry.request == nullptr) return;
  _responder.refuse({entry.origin, *entry.request, entry.request->code}, DCH_STATUS_NOT_STORED,
                    reason);
  _responder.finish(entry.origin);
}

void Core::apply(Registered&& change, Entry&& entry) {
  const Applied applied = _registry.apply(std::move(change), std::move(entry.prepared));
  if (applied.status == DCH_STATUS_OK) {
    const suite::Registration& registration =
        _registry.findApplication(entry.claim.application)->registration;
    _log.write("registered %s (key %s, type %s, %zu group(s))",
               printable(registration.applName).c_str(), printable(registration.applKey).c_str(),
               registration.type.c_str(), registration.groups.size());
  }
  acknowledge(entry, applied);
  publishEvents(entry, applied);
}

void Core::apply(Unregistered&& change, Entry&& entry) {
  const Applied applied = _registry.apply(change, std::move(entry.prepared));
  if (applied.status == DCH_STATUS_OK)
    _log.write("unregistered %s", printable(change.application).c_str());
  acknowledge(entry, applied);
  publishEvents(entry, applied);
}

void Core::apply(WentOnline&& change, Entry&& entry) {
  const Applied applied = _registry.apply(change, std::move(entry.prepared));
  if (!applied.moved.empty())
    _log.write("on line: %s %s %s, handle %d", printable(change.application).c_str(),
               printable(change.group).c_str(), printable(change.source).c_str(),
               static_cast<int>(change.handle));
  acknowledge(entry, applied);
  publishEvents(entry, applied);
}

void Core::apply(WentOffline&& change, Entry&& entry) {
  const Applied applied = _registry.apply(change, std::move(entry.prepared));
  if (applied.status == DCH_STATUS_OK)
    _log.write("off line: handle %d", static_cast<int>(change.handle));
  acknowledge(entry, applied);
  publishEvents(entry, applied);
}

void Core::apply(Row&& change, Entry&& entry) {
  const Applied applied = _registry.apply(&change);
  acknowledge(entry, applied);
  if (applied.status != DCH_STATUS_OK) return;
  _counters.add(Counter::rowsKept);
  const Row& row = applied.source->row ? *applied.source->row : change;
  _publisher.publish(applied.source->group->topic, row.message);
  if (_ports.observers.empty()) return;
  const std::string_view former = applied.source->isOnline ? change.message : std::string_view();
  _ports.observers.rowKept(*applied.source, row.message, former, row.time);
}

void Core::apply(Deferred&& change, Entry&& entry) {
  try {
    _log.write("deferred: %s", change.deferral.front().text().c_str());
  } catch (const std::bad_alloc&) {
    _log.write("deferred: a report, and no memory to show it");
  }
  _deferrals.add(std::move(change.deferral));
  _requestCounts.add(*entry.request, DCH_STATUS_OK);
}

void Core::apply(ActionStarted&& change, Entry&& entry) {
  _requestCounts.add(*entry.request, DCH_STATUS_OK);
  if (const std::optional<ActionEnded> ended = _actions.apply(change)) keep(*ended);
}

void Core::apply(ActionEnded&& change, Entry&&) {
  _responder.sendActionResult(_actions.apply(change), change.status);
}

void Core::acknowledge(const Entry& entry, const Applied& applied) {
  const Asked asked{entry.origin, *entry.request, entry.request->code};
  if (applied.status != DCH_STATUS_OK) return _responder.refuse(asked, applied.status);
  const bool hasHandle = asked.type.hasHandle && applied.source != nullptr;
  _responder.sendResult(asked, {DCH_STATUS_OK, hasHandle ? applied.source->handle : 0});
}

// The sources first, then the application when the change is one of all of it.
void Core::publishEvents(const Entry& entry, const Applied& applied) {
  if (applied.status != DCH_STATUS_OK) return;
  const short code = entry.request->code;
  const std::size_t events = applied.moved.size() + (entry.claim.handle == 0 ? 1 : 0);
  for (const Source* source : applied.moved) publishEvent(source->names(), code, events);
  if (entry.claim.handle == 0) publishEvent({entry.claim.application, {}, {}}, code, events);
}

void Core::publishEvent(const SourceNames& names, short code, std::size_t together) {
  if (_publisher.hasSubscribers(statusTopic))
    _publisher.publish(statusTopic, StatusEvent(names, code).message(), together);
  _ports.observers.statusChanged(names, code);
}

void Core::startTimer() {
  // Starting it again would put it off, for ever when requests keep coming.
  if (_timerRuns || !_snapshots.areUnderWay() || _snapshots.areAdvancing()) return;
  _timerRuns = true;
  _ports.timer.start();
}

}  // namespace dch
