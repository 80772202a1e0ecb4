#include "dch/link/nats_connecting.h"

#include <charconv>
#include <climits>
#include <cstdint>
#include <new>
#include <system_error>
#include <utility>

#include "dch/link/connect_guard.h"
#include "dch/link/signals_blocked.h"
#include "dch/link/subject.h"

namespace dch {

namespace {

constexpr int unansweredPings = 2;

constexpr std::string_view inboxes = "_INBOX.";

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

NatsOptions optionsFor(const LinkSettings& settings, const std::string& server, NatsManner manner) {
  natsOptions* made = nullptr;
  natsStatus status = natsOptions_Create(&made);
  if (status != NATS_OK) failAbout(server, textOf(status));
  NatsOptions options(made);
  const auto set = [&](auto call, auto... values) {
    if (status == NATS_OK) status = call(made, values...);
  };
  set(natsOptions_SetURL, server.c_str());
  set(natsOptions_SetName, ("zordchd " + settings.site).c_str());
  set(natsOptions_SetTimeout, std::int64_t{longestConnecting.count()});
  set(natsOptions_SetAllowReconnect, false);
  // It names others, to which the library would go within the same call, password and all.
  set(natsOptions_SetIgnoreDiscoveredServers, true);
  set(natsOptions_SetPingInterval, std::int64_t{manner.pingInterval.count()});
  set(natsOptions_SetMaxPingsOut, unansweredPings);
  set(natsOptions_SetWriteDeadline, std::int64_t{longestSending.count()});
  if (manner.isLive) {
    set(natsOptions_SetSendAsap, true);
    set(natsOptions_SetNoEcho, true);
    set(natsOptions_UseGlobalMessageDelivery, true);
  }
  if (settings.user)
    set(natsOptions_SetUserInfo, settings.user->name.c_str(), settings.user->password.c_str());
  if (server.starts_with("tls://") || settings.tlsCa) set(natsOptions_SetSecure, true);
  if (status != NATS_OK) failAbout(server, textOf(status));
  if (settings.tlsCa &&
      natsOptions_LoadCATrustedCertificates(made, settings.tlsCa->c_str()) != NATS_OK)
    failAbout(server, "no CA certificates can be read from '" + *settings.tlsCa + "'");
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

}  // namespace

natsStatus publishOn(natsConnection* connection, const std::string& subject,
                     const std::string& replySubject, const std::vector<NatsHeader>& headers,
                     std::string_view body) {
  if (body.size() > INT_MAX) return NATS_MAX_PAYLOAD;
  natsMsg* made = nullptr;
  natsStatus status =
      natsMsg_Create(&made, subject.c_str(), replySubject.empty() ? nullptr : replySubject.c_str(),
                     body.data(), static_cast<int>(body.size()));
  const NatsMessage message(made);
  for (const NatsHeader& each : headers)
    if (status == NATS_OK) status = natsMsgHeader_Set(made, each.name, each.value);
  if (status != NATS_OK) throw std::bad_alloc();
  return natsConnection_PublishMsg(connection, made);
}

std::string newInbox(std::string_view site) {
  natsInbox* made = nullptr;
  if (natsInbox_Create(&made) != NATS_OK) throw std::bad_alloc();
  std::string inbox = NatsInbox(made).get();
  return inbox.insert(inboxes.size(), subjectToken(site) + '.');
}

void failAbout(const std::string& server, const std::string& what) {
  throw LinkError(server + ": " + what);
}

NatsConnection connectNats(const LinkSettings& settings, const std::string& server,
                           NatsManner manner, const std::shared_ptr<WaitableFlag>& isClosed) try {
  const SignalsBlocked duringThis;
  const NatsOptions options = optionsFor(settings, server, manner);
  auto closure = std::make_unique<Flag>(isClosed);
  natsOptions_SetClosedCB(options.get(), setFlag, closure.get());
  ConnectGuard guard(portIn(server), longestConnecting);
  natsConnection* made = nullptr;
  natsStatus status = natsConnection_Connect(&made, options.get());
  NatsConnection connection(made);
  if (status == NATS_OK) static_cast<void>(closure.release());  // setFlag() has it
  guard.end();
  if (guard.hasShutDown()) status = NATS_TIMEOUT;  // also when it was connected just then
  if (status != NATS_OK) failAbout(server, connectFault(status, settings));
  return connection;
} catch (const std::system_error& error) {
  failAbout(server, std::string("cannot connect: ") + error.what());
}

void failAsLost(const std::string& server, natsConnection* connection, natsStatus status) {
  if (status == NATS_NO_MEMORY) throw std::bad_alloc();
  failIfNotPermitted(server, connection);
  const char* text = nullptr;
  natsConnection_GetLastError(connection, &text);
  failAbout(server, std::string("the connection was lost: ") +
                        (text != nullptr && *text != '\0' ? text : natsStatus_GetText(status)));
}

// The server says so beside the answers: whatever was refused is just not answered. What others ask
// for goes to inboxes of theirs; that one may not be written to is their affair.
void failIfNotPermitted(const std::string& server, natsConnection* connection) {
  const char* text = nullptr;
  if (natsConnection_GetLastError(connection, &text) != NATS_NOT_PERMITTED) return;
  if (std::string_view(text).find("Publish to \"_") != std::string_view::npos) return;
  std::string reason(text);
  // Another word each time, which would be another sentence each time.
  const std::size_t inbox = reason.find(inboxes);
  const std::size_t word =
      inbox == std::string::npos ? inbox : reason.find('.', inbox + inboxes.size());
  if (word != std::string::npos) reason.replace(word, reason.find('"', word) - word, ".>");
  throw NotPermitted(server + ": this user may not do what is needed: " + reason);
}

}  // namespace dch
