#include "dch/link/server_connection.h"

#include <algorithm>
#include <new>

#include "dch/link/nats_connecting.h"

namespace dch {

namespace {

using std::chrono::milliseconds;

// A server that stands still is noticed after three of these.
constexpr milliseconds pingInterval{2'000};

}  // namespace

ServerConnection::ServerConnection(const LinkSettings& settings, const std::string& server)
    : _server(server),
      _site(settings.site),
      _isClosed(std::make_shared<WaitableFlag>()),
      _connection(connectNats(settings, server, {.pingInterval = pingInterval}, _isClosed)),
      _inbox(newInbox() + '.') {
  _answers.reset(subscribe(_inbox + "*").release());
}

ServerConnection::~ServerConnection() {
  natsConnection_Close(_connection.get());
  if (_isClosed->wait(longestClosing)) return;
  // Better never than too early.
  for (NatsSubscription& each : _ended) static_cast<void>(each.release());
  static_cast<void>(_answers.release());
  static_cast<void>(_asked.release());
}

natsStatus ServerConnection::send(const std::string& subject, const std::string& replySubject,
                                  const std::vector<Header>& headers, std::string_view body) {
  const natsStatus status = publishOn(_connection.get(), subject, replySubject, headers, body);
  if (status != NATS_OK && status != NATS_MAX_PAYLOAD)
    failAsLost(_server, _connection.get(), status);
  return status;
}

ServerConnection::Subscription ServerConnection::subscribe(const std::string& subject) {
  natsSubscription* made = nullptr;
  const natsStatus status = natsConnection_SubscribeSync(&made, _connection.get(), subject.c_str());
  if (status != NATS_OK) failAsLost(_server, _connection.get(), status);
  return {made, {this}};
}

ServerConnection::Subscription ServerConnection::share(const std::string& subject) {
  natsSubscription* made = nullptr;
  const natsStatus status =
      natsConnection_QueueSubscribeSync(&made, _connection.get(), subject.c_str(), "zordchd");
  if (status != NATS_OK) failAsLost(_server, _connection.get(), status);
  return {made, {this}};
}

void ServerConnection::end(natsSubscription* subscription) noexcept {
  natsSubscription_Unsubscribe(subscription);
  try {
    _ended.emplace_back(subscription);
  } catch (const std::bad_alloc&) {
    // It stays where it is, for good.
  }
}

ServerConnection::Heard ServerConnection::ask(const std::string& subject, std::string_view body,
                                              milliseconds atMost) {
  if (_asked == nullptr) {
    _askedInbox = newInbox() + '.';
    _asked.reset(subscribe(_askedInbox + '*').release());
  }
  const std::string reply = _askedInbox + std::to_string(++_questions);
  send(subject, reply, {}, body);
  const auto end = std::chrono::steady_clock::now() + atMost;
  while (true) {
    const auto left =
        std::chrono::duration_cast<milliseconds>(end - std::chrono::steady_clock::now());
    Heard answer = heard(_asked.get(), std::max(left, milliseconds(1)));
    if (answer.message == nullptr) return answer;
    if (natsMsg_GetSubject(answer.message.get()) != reply) continue;  // too late
    _ended.clear();  // the library has read this behind all that came for them
    return answer;
  }
}

ServerConnection::Heard ServerConnection::heard(natsSubscription* subscription,
                                                milliseconds atMost) {
  natsMsg* message = nullptr;
  const natsStatus status = natsSubscription_NextMsg(&message, subscription, atMost.count());
  switch (status) {
    case NATS_OK:
      return {.message = NatsMessage(message)};
    case NATS_NO_RESPONDERS:
      return {.nobodyTakesIt = true};
    case NATS_TIMEOUT:
    case NATS_SLOW_CONSUMER:  // some were lost: who misses an answer asks again
      failIfNotPermitted(_server, _connection.get());
      return {};
    default:
      failAsLost(_server, _connection.get(), status);
  }
}

void ServerConnection::fail(const std::string& what) const {
  failAbout(_server, what);
}

}  // namespace dch
