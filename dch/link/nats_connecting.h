// nats_connecting.h: connects with a NATS server, and says in sentences why that fails.
#ifndef DCH_LINK_NATS_CONNECTING_H
#define DCH_LINK_NATS_CONNECTING_H

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dch/link/link_error.h"
#include "dch/link/link_settings.h"
#include "dch/link/nats.h"
#include "dch/link/waitable_flag.h"

namespace dch {

inline constexpr std::chrono::milliseconds longestConnecting{1'000};
inline constexpr std::chrono::milliseconds longestSending{500};
// It takes no time; but a library without memory does not say that it has closed a connection.
inline constexpr std::chrono::milliseconds longestClosing{5'000};

// The server refuses what this user asks for or sends.
class NotPermitted : public LinkError {
 public:
  using LinkError::LinkError;
};

// In what the connections of a site differ.
struct NatsManner {
  // A server that stands still is noticed after three of these.
  std::chrono::milliseconds pingInterval;
  // What is sent goes at once, nothing comes back of it, and what comes is for handlers, which a
  // thread of the library calls, the same one for all.
  bool isLive = false;
};

// Sets `isClosed` when the connection is closed, however that comes about, and the thread that
// reads it is gone. Throws LinkError.
NatsConnection connectNats(const LinkSettings& settings, const std::string& server,
                           NatsManner manner, const std::shared_ptr<WaitableFlag>& isClosed);

struct NatsHeader {
  const char* name;
  const char* value;
};
// `replySubject` may be empty. What the library says. Throws std::bad_alloc.
natsStatus publishOn(natsConnection* connection, const std::string& subject,
                     const std::string& replySubject, const std::vector<NatsHeader>& headers,
                     std::string_view body);

// Where answers to this site go: _INBOX.SITE.WORD, which nobody else has, and beside which nobody
// else has to be allowed to listen. With .ANSWERER.WORD behind it for what another site answers,
// which may so be allowed to send to nowhere else. Throws std::bad_alloc.
std::string newInbox(std::string_view site);

// Throws LinkError: what of the server.
[[noreturn]] void failAbout(const std::string& server, const std::string& what);

// The connection with the server cannot do what it was asked for. Throws LinkError.
[[noreturn]] void failAsLost(const std::string& server, natsConnection* connection,
                             natsStatus status);

// Throws NotPermitted when the server has said so.
void failIfNotPermitted(const std::string& server, natsConnection* connection);

}  // namespace dch

#endif  // DCH_LINK_NATS_CONNECTING_H
