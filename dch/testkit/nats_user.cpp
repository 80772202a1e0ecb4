#include "dch/testkit/nats_user.h"

#include <chrono>
#include <utility>

#include "dch/testkit/nats_client.h"
#include "dch/testkit/nats_messages.h"

namespace dch::testkit {

namespace {

constexpr std::int64_t longestWaitForServer =
    std::chrono::milliseconds(std::chrono::seconds(60)).count();

}  // namespace

struct NatsUser::Ends {
  explicit Ends(const DocumentedNats& nats, const std::string& user)
      : inbox("_INBOX." + user + ".tries."), connection(nats.urlOf(user), nats.authority()) {}
  ~Ends() { connection.close(); }

  const std::string inbox;
  const NatsClient connection;
  std::vector<NatsSubscription> subscriptions;
  int questions = 0;
};

NatsUser::NatsUser(const DocumentedNats& nats, const std::string& user)
    : _ends(std::make_unique<Ends>(nats, user)) {}

NatsUser::~NatsUser() = default;

bool NatsUser::isRefused(const std::string& subject, const std::string& body,
                         const std::string& answerTo, const std::vector<Header>& headers) {
  send(subject, body, answerTo, headers);
  settle();
  return hasRefused("Publish to \"" + subject + '"');
}

void NatsUser::send(const std::string& subject, const std::string& body,
                    const std::string& answerTo, const std::vector<Header>& headers) const {
  natsMsg* made = nullptr;
  requireDone(natsMsg_Create(&made, subject.c_str(), answerTo.empty() ? nullptr : answerTo.c_str(),
                             body.data(), static_cast<int>(body.size())));
  const NatsMessage message(made);
  for (const Header& each : headers)
    requireDone(natsMsgHeader_Set(made, each.name.c_str(), each.value.c_str()));
  requireDone(natsConnection_PublishMsg(_ends->connection.get(), made));
}

bool NatsUser::isListeningRefused(const std::string& subject, const std::string& queue) {
  natsSubscription* made = nullptr;
  requireDone(queue.empty()
                  ? natsConnection_SubscribeSync(&made, _ends->connection.get(), subject.c_str())
                  : natsConnection_QueueSubscribeSync(&made, _ends->connection.get(),
                                                      subject.c_str(), queue.c_str()));
  _ends->subscriptions.emplace_back(made);
  settle();
  return hasRefused("Subscription to \"" + subject + '"');
}

std::optional<std::string> NatsUser::answer(const std::string& subject, const std::string& body,
                                            const std::vector<Header>& headers) {
  const std::string inbox = _ends->inbox + std::to_string(++_ends->questions);
  natsSubscription* made = nullptr;
  requireDone(natsConnection_SubscribeSync(&made, _ends->connection.get(), inbox.c_str()));
  _ends->subscriptions.emplace_back(made);
  send(subject, body, inbox, headers);
  natsMsg* answer = nullptr;
  const natsStatus status = natsSubscription_NextMsg(&answer, made, longestWaitForServer);
  const NatsMessage end(answer);
  if (status == NATS_NO_RESPONDERS) return std::nullopt;
  requireDone(status);
  return bodyOf(answer);
}

std::vector<NatsUser::Heard> NatsUser::heard() {
  settle();
  std::vector<Heard> found;
  for (const NatsSubscription& each : _ends->subscriptions) {
    natsMsg* next = nullptr;
    while (natsSubscription_NextMsg(&next, each.get(), 1) == NATS_OK) {
      const NatsMessage message(next);
      const char* const answerTo = natsMsg_GetReply(next);
      found.push_back(
          {natsMsg_GetSubject(next), answerTo != nullptr ? answerTo : "", bodyOf(next)});
    }
  }
  return found;
}

void NatsUser::settle() const {
  requireDone(natsConnection_FlushTimeout(_ends->connection.get(), longestWaitForServer));
}

bool NatsUser::hasRefused(const std::string& what) const {
  const char* text = nullptr;
  return natsConnection_GetLastError(_ends->connection.get(), &text) == NATS_NOT_PERMITTED &&
         std::string(text).find(what) != std::string::npos;
}

}  // namespace dch::testkit
