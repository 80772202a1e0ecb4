#include "dch/net/channel.h"

#include <fcntl.h>

#include <cinttypes>
#include <new>
#include <utility>

#include "dch/clock.h"
#include "dch/core/state_report.h"
#include "dch/net/socket_option.h"

namespace dch {

namespace {

constexpr std::size_t mostWaiting = 10'000;  // changes

Descriptor copyOf(int descriptor) {
  Descriptor copy(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
  if (!copy.isOpen()) throwSystemError("cannot watch over the push socket");
  return copy;
}

}  // namespace

Channel::Channel(EventLoop& loop, ServedPort&& port, const ChannelLimits& limits, Store& store,
                 const ActionRules& actionRules, Counters& counters, const Log& log,
                 const Observers& observers)
    : _store(store),
      _counters(counters),
      _log(log),
      _allowed(limits.allowed),
      _datagrams(
          loop, std::move(port.datagramSockets),
          [this](std::span<const Message> datagrams) { receive(datagrams); }, [this] { settle(); },
          counters),
      _answers(_datagrams.descriptor(), counters, log),
      _pacedAnswers(
          loop,
          [this](const Origin& receiver, std::string_view datagram) {
            _answers.add(receiver, datagram);
            _answers.flush();
          },
          counters, log),
      _streams(loop, std::move(port.listener), limits.streams, *this, counters, log),
      _pushSocket(in_addr{port.address.address}),
      _sentBack(loop, copyOf(_pushSocket.descriptor()), [this] { receiveFromSubscribers(); }),
      _own(port.address, htons(_pushSocket.port())),
      _timer(loop,
             [this] {
               _core.timeIsUp();
               settle();
             }),
      _publishing(loop, [this] { publishMore(); }),
      _looking(loop, [this] { lookForGone(); }),
      _core({*this, _pushSocket, store, _timer, _programs, observers}, actionRules, counters, log),
      _remoteRows(_core, store) {
  _core.load();
}

void Channel::start() {
  _sentBack.waitUntilReadable();
  _datagrams.start();
  _streams.start();
}

void Channel::collectPrograms() noexcept {
  _programs.collect(
      [this](ZORA_Long id, ZORA_Long result) { _core.programEnded(id, result, now()); });
  settle();
}

void Channel::tick() noexcept {
  _streams.endStalled(StreamConnection::Clock::now());
  if (!_looking.isSet()) lookForGone();
  // The signal that tells of an end is lost when very many others come at the same moment.
  collectPrograms();
}

// Thousands of subscribers are looked at in some seconds, and nobody waits for that.
void Channel::lookForGone() noexcept {
  if (_core.lookForGoneSubscribers()) _looking.set(std::chrono::milliseconds(100));
}

void Channel::drain() {
  _datagrams.drain();
  _streams.drain();
  settle();
}

bool Channel::drainRest() {
  const bool isSome = _streams.drainRest();
  settle();
  return isSome;
}

void Channel::setLimits(const ChannelLimits& limits) {
  AddressRanges allowed = limits.allowed;
  _core.dropSubscribers([&allowed](const PeerAddress& peer) { return !allowed.contains(peer); });
  _streams.setLimits(limits.streams);
  _allowed = std::move(allowed);
  _streams.endNotAllowed();
  settle();
}

void Channel::setGauges() noexcept {
  _core.setGauges();
  _counters.set(Counter::connections, _streams.connectionCount());
}

std::string Channel::report() {
  setGauges();
  return _core.report();
}

std::string Channel::statusLine() {
  _core.setGauges();
  return dch::statusLine(_counters);
}

void Channel::CoreTimer::start() {
  // Long enough for a client on a busy machine to read a batch of events.
  _alarm.set(std::chrono::milliseconds(100));
}

void Channel::receive(std::span<const Message> datagrams) {
  for (const Message& each : datagrams) {
    if (!isAllowed(each.origin.peer) || isOwn(each.origin.peer)) continue;
    // It waits for no earlier answer any more.
    _pacedAnswers.giveUp(each.origin.peer);
    _core.receive(each);
  }
}

bool Channel::isAllowed(const PeerAddress& peer) {
  if (_allowed.contains(peer)) return true;
  countNotAllowed(peer);
  return false;
}

bool Channel::isOwn(const PeerAddress& peer) {
  if (!_own.contains(peer)) return false;
  countNotAllowed(peer);
  return true;
}

void Channel::countNotAllowed(const PeerAddress& peer) {
  _counters.add(Counter::notAllowed);
  const std::uint64_t count = _counters[Counter::notAllowed];
  if (isToldAt(count))
    _log.write("%s is not allowed; %" PRIu64 " such so far", peer.text().data(), count);
}

void Channel::receiveFromSubscribers() {
  _pushSocket.receive([this](const Message& each) { _core.receiveFromSubscriber(each); });
  _sentBack.waitUntilReadable();
}

void Channel::send(const Origin& receiver, std::string_view message) noexcept {
  if (!receiver.isDatagram())
    _streams.send(receiver, message);
  else if (message.size() <= maxDatagramBytes)
    _answers.add(receiver, message);
  else if (!sendLong(receiver, message))
    countDroppedAnswer(receiver, _counters, _log);
}

bool Channel::sendLong(const Origin& receiver, std::string_view message) noexcept {
  try {
    return _pacedAnswers.send(receiver, message);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void Channel::settle() noexcept {
  _streams.settle();
  _store.handOver();
  _answers.flush();
  waitForStore();
  if (_core.isPublishing()) _publishing.ask();
}

void Channel::finishPublishing() noexcept {
  _core.finishPublishing();
  settle();
}

void Channel::publishMore() {
  _core.publishMore();
  settle();
}

// What waits for a slow store or behind rows to many is bounded: the rest stays with the system,
// and with the clients.
void Channel::waitForStore() noexcept {
  const std::size_t waiting = _core.changesWaiting();
  const bool isHeldUp = _isHeldUp ? waiting > mostWaiting / 2 : waiting >= mostWaiting;
  if (isHeldUp == std::exchange(_isHeldUp, isHeldUp)) return;
  _datagrams.setHeldUp(isHeldUp);
  _streams.setHeldUp(isHeldUp);
}

}  // namespace dch
