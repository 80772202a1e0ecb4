#include "dch/link/server_connection.h"

#include <signal.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <new>
#include <system_error>

#include "dch/link/connect_guard.h"

namespace dch {

namespace {

using std::chrono::milliseconds;

// A server that stands still is noticed after three of these.
constexpr milliseconds pingInterval{2'000};
constexpr int unansweredPings = 2;

// It takes no time; but a library without memory does not say that it has closed one.
constexpr milliseconds longestClosing{5'000};

// The threads that the library makes meanwhile take no signals: those are this program's.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &_before);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &_before, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t _before;
};

[[noreturn]] void failFor(const std::string& server, const std::string& what) {
  throw LinkError(server + ": " + what);
}

// The library begins what it says with the place in its source: (conn.c:802): ...
std::string withoutPlace(const std::string& text) {
  const std::size_t end = text.find("): ");
  return text.starts_with('(') && end != std::string::npos ? text.substr(end + 3) : text;
}

// Of this thread's last call.
std::string textOf(natsStatus status) {
  if (status == NATS_NO_MEMORY) throw std::bad_alloc();
  const char* const text = nats_GetLastError(nullptr);
  return withoutPlace(text != nullptr && *text != '\0' ? text : natsStatus_GetText(status));
}

NatsOptions optionsFor(const LinkSettings& settings, const std::string& server) {
  natsOptions* made = nullptr;
  natsStatus status = natsOptions_Create(&made);
  if (status != NATS_OK) failFor(server, textOf(status));
  NatsOptions options(made);
  const auto set = [&](auto call, auto... values) {
    if (status == NATS_OK) status = call(made, values...);
  };
  set(natsOptions_SetURL, server.c_str());
  set(natsOptions_SetName, ("zordchd " + settings.site).c_str());
  set(natsOptions_SetTimeout, std::int64_t{ServerConnection::longestConnecting.count()});
  set(natsOptions_SetAllowReconnect, false);
  // It names others, to which the library would go within the same call, password and all.
  set(natsOptions_SetIgnoreDiscoveredServers, true);
  set(natsOptions_SetPingInterval, std::int64_t{pingInterval.count()});
  set(natsOptions_SetMaxPingsOut, unansweredPings);
  set(natsOptions_SetWriteDeadline, std::int64_t{ServerConnection::longestSending.count()});
  if (settings.user)
    set(natsOptions_SetUserInfo, settings.user->name.c_str(), settings.user->password.c_str());
  if (server.starts_with("tls://") || settings.tlsCa) set(natsOptions_SetSecure, true);
  if (status != NATS_OK) failFor(server, textOf(status));
  if (settings.tlsCa &&
      natsOptions_LoadCATrustedCertificates(made, settings.tlsCa->c_str()) != NATS_OK)
    failFor(server, "no CA certificates can be read from '" + *settings.tlsCa + "'");
  return options;
}

std::string connectFault(natsStatus status, const LinkSettings& settings) {
  const std::string text = textOf(status);
  switch (status) {
    case NATS_NO_SERVER:
      return "nothing listens there, or there is no such host";
    case NATS_TIMEOUT:
      return "no answer within a second: it stands still, or is no NATS server";
    case NATS_PROTOCOL_ERROR:
      if (text.find("'PONG'") != std::string::npos)
        return "it ended the connection after its greeting, as one with too many of them, or one "
               "that wants a client certificate";
      return "it is no NATS server (" + text + ")";
    case NATS_CONNECTION_CLOSED:
      return "it closed the connection without a greeting: it ends, or is no NATS server";
    case NATS_CONNECTION_AUTH_FAILED:
      return settings.user ? "it refuses the user '" + settings.user->name + "' or the password"
                           : "it wants a user and a password";
    case NATS_SECURE_CONNECTION_WANTED:
      return "it offers no TLS";
    case NATS_SSL_ERROR:
      if (text.find("cert=") == std::string::npos) return "TLS fails (" + text + ")";
      if (text.find("mismatch") != std::string::npos)
        return "its certificate is for another host (" + text + ")";
      return "its certificate is not trusted (" + text + ")";
    default:
      return "cannot connect: " + text;
  }
}

// In nats://HOST:PORT; without one the library takes this.
int portIn(const std::string& server) {
  int port = 4'222;
  std::from_chars(server.data() + server.rfind(':') + 1, server.data() + server.size(), port);
  return port;
}

using Flag = std::shared_ptr<WaitableFlag>;

void setFlag(natsConnection*, void* closure) {
  const std::unique_ptr<Flag> flag(static_cast<Flag*>(closure));
  (*flag)->set();
}

// Sets `isClosed` when the connection is closed, however that comes about, and the thread that
// reads it is gone.
NatsConnection connect(const LinkSettings& settings, const std::string& server,
                       const Flag& isClosed) try {
  const SignalsBlocked duringThis;
  const NatsOptions options = optionsFor(settings, server);
  auto closure = std::make_unique<Flag>(isClosed);
  natsOptions_SetClosedCB(options.get(), setFlag, closure.get());
  ConnectGuard guard(portIn(server), ServerConnection::longestConnecting);
  natsConnection* made = nullptr;
  natsStatus status = natsConnection_Connect(&made, options.get());
  NatsConnection connection(made);
  if (status == NATS_OK) static_cast<void>(closure.release());  // setFlag() has it
  guard.end();
  if (guard.hasShutDown()) status = NATS_TIMEOUT;  // also when it was connected just then
  if (status != NATS_OK) failFor(server, connectFault(status, settings));
  return connection;
} catch (const std::system_error& error) {
  failFor(server, std::string("cannot connect: ") + error.what());
}

}  // namespace

ServerConnection::ServerConnection(const LinkSettings& settings, const std::string& server)
    : _server(server),
      _isClosed(std::make_shared<WaitableFlag>()),
      _connection(connect(settings, server, _isClosed)),
      _inbox(newInbox() + ".") {
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
  if (body.size() > INT_MAX) return NATS_MAX_PAYLOAD;
  natsMsg* made = nullptr;
  natsStatus status =
      natsMsg_Create(&made, subject.c_str(), replySubject.empty() ? nullptr : replySubject.c_str(),
                     body.data(), static_cast<int>(body.size()));
  const NatsMessage message(made);
  for (const Header& each : headers)
    if (status == NATS_OK) status = natsMsgHeader_Set(made, each.name, each.value);
  if (status != NATS_OK) throw std::bad_alloc();
  status = natsConnection_PublishMsg(_connection.get(), made);
  if (status != NATS_OK && status != NATS_MAX_PAYLOAD) failAsLost(status);
  return status;
}

std::string ServerConnection::newInbox() {
  natsInbox* made = nullptr;
  if (natsInbox_Create(&made) != NATS_OK) throw std::bad_alloc();
  return NatsInbox(made).get();
}

ServerConnection::Subscription ServerConnection::subscribe(const std::string& subject) {
  natsSubscription* made = nullptr;
  const natsStatus status = natsConnection_SubscribeSync(&made, _connection.get(), subject.c_str());
  if (status != NATS_OK) failAsLost(status);
  return {made, {this}};
}

ServerConnection::Subscription ServerConnection::share(const std::string& subject) {
  natsSubscription* made = nullptr;
  const natsStatus status =
      natsConnection_QueueSubscribeSync(&made, _connection.get(), subject.c_str(), "zordchd");
  if (status != NATS_OK) failAsLost(status);
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
  if (_asked == nullptr) _asked.reset(subscribe(_inbox + "asked.*").release());
  const std::string reply = _inbox + "asked." + std::to_string(++_questions);
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
      failIfNotPermitted();
      return {};
    default:
      failAsLost(status);
  }
}

void ServerConnection::fail(const std::string& what) const {
  failFor(_server, what);
}

void ServerConnection::failAsLost(natsStatus status) const {
  if (status == NATS_NO_MEMORY) throw std::bad_alloc();
  failIfNotPermitted();
  const char* text = nullptr;
  natsConnection_GetLastError(_connection.get(), &text);
  fail(std::string("the connection was lost: ") +
       (text != nullptr && *text != '\0' ? text : natsStatus_GetText(status)));
}

// The server says so beside the answers: whatever was refused is just not answered. What others ask
// for goes to inboxes of theirs; that one may not be written to is their affair.
void ServerConnection::failIfNotPermitted() const {
  const char* text = nullptr;
  if (natsConnection_GetLastError(_connection.get(), &text) != NATS_NOT_PERMITTED) return;
  if (std::string_view(text).find("Publish to \"_") != std::string_view::npos) return;
  std::string reason(text);
  // Another one each time, which would be another sentence each time.
  if (const std::size_t inbox = reason.find("_INBOX."); inbox != std::string::npos)
    reason.replace(inbox, reason.find('"', inbox) - inbox, "_INBOX.>");
  throw NotPermitted(_server + ": this user may not do what is needed: " + reason);
}

}  // namespace dch
