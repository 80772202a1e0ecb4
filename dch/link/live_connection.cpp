#include "dch/link/live_connection.h"

#include <new>
#include <utility>

#include "dch/link/signals_blocked.h"

namespace dch {

namespace {

// What others see of this site is old after a second or two.
constexpr std::chrono::milliseconds livePingInterval{1'000};

// Of one subscription, before they are put by. The library drops what is more.
constexpr int mostWaiting = 512;
constexpr int mostBytesWaiting = 256 << 10;
constexpr int muchWaiting = 4'096;
constexpr int muchBytesWaiting = 4 << 20;

constexpr std::size_t mostEnded = 64;

constexpr std::chrono::milliseconds longestSettling{1'000};

using Inbox = std::shared_ptr<LiveInbox>;

void putBy(natsConnection*, natsSubscription*, natsMsg* message, void* closure) {
  const NatsMessage owned(message);
  (*static_cast<const Inbox*>(closure))->put(LiveMessage(message));
}

// Called once, behind the last putBy().
void letGo(void* closure) {
  delete static_cast<const Inbox*>(closure);
}

}  // namespace

std::string_view LiveMessage::replySubject() const {
  const char* const subject = natsMsg_GetReply(_message);
  return subject != nullptr ? subject : "";
}

std::string_view LiveMessage::body() const {
  return {natsMsg_GetData(_message), static_cast<std::size_t>(natsMsg_GetDataLength(_message))};
}

std::string_view LiveMessage::header(const char* name) const {
  const char* value = nullptr;
  return natsMsgHeader_Get(_message, name, &value) == NATS_OK && value != nullptr
             ? std::string_view(value)
             : std::string_view();
}

LiveConnection::LiveConnection(const LinkSettings& settings, const std::string& server)
    : _server(server),
      _site(settings.site),
      _isClosed(std::make_shared<WaitableFlag>()),
      _connection(connectNats(settings, server, {.pingInterval = livePingInterval, .isLive = true},
                              _isClosed)) {}

LiveConnection::~LiveConnection() {
  natsConnection_Close(_connection.get());
  if (_isClosed->wait(longestClosing)) return;
  // Better never than too early.
  for (NatsSubscription& each : _ended) static_cast<void>(each.release());
}

bool LiveConnection::send(const std::string& subject, const std::string& replySubject,
                          const std::vector<NatsHeader>& headers, std::string_view body) {
  const natsStatus status = publishOn(_connection.get(), subject, replySubject, headers, body);
  if (status != NATS_OK && status != NATS_MAX_PAYLOAD)
    failAsLost(_server, _connection.get(), status);
  return status == NATS_OK;
}

LiveConnection::Subscription LiveConnection::subscribe(const std::string& subject,
                                                       std::shared_ptr<LiveInbox> inbox,
                                                       Room room) {
  if (_ended.size() >= mostEnded) freeEnded();
  auto closure = std::make_unique<Inbox>(std::move(inbox));
  const SignalsBlocked duringThis;  // the first one makes the library's thread
  natsSubscription* made = nullptr;
  natsStatus status =
      natsConnection_Subscribe(&made, _connection.get(), subject.c_str(), putBy, closure.get());
  if (status != NATS_OK) {
    // The library may have begun to use it, unless it had no connection any more.
    if (status != NATS_CONNECTION_CLOSED) static_cast<void>(closure.release());
    failAsLost(_server, _connection.get(), status);
  }
  Subscription subscription(made, {this});
  // From here on the library has it. When it is too late for that, it stays where it is.
  status = natsSubscription_SetOnCompleteCB(made, letGo, closure.release());
  const bool isMuch = room == Room::much;
  if (status == NATS_OK)
    status = natsSubscription_SetPendingLimits(made, isMuch ? muchWaiting : mostWaiting,
                                               isMuch ? muchBytesWaiting : mostBytesWaiting);
  if (status != NATS_OK) failAsLost(_server, _connection.get(), status);
  return subscription;
}

void LiveConnection::check() const {
  failIfNotPermitted(_server, _connection.get());
  if (natsConnection_IsClosed(_connection.get()))
    failAsLost(_server, _connection.get(), NATS_CONNECTION_CLOSED);
}

void LiveConnection::settle() const {
  const natsStatus status = natsConnection_FlushTimeout(_connection.get(), longestSettling.count());
  if (status != NATS_OK) failAsLost(_server, _connection.get(), status);
  check();
}

void LiveConnection::end(natsSubscription* subscription) noexcept {
  natsSubscription_Unsubscribe(subscription);
  try {
    _ended.emplace_back(subscription);
  } catch (const std::bad_alloc&) {
    // It stays where it is, for good.
  }
}

// The server answers behind all that it has sent for them, and the library has read that then.
void LiveConnection::freeEnded() noexcept {
  if (natsConnection_FlushTimeout(_connection.get(), longestSettling.count()) == NATS_OK)
    _ended.clear();
}

}  // namespace dch
