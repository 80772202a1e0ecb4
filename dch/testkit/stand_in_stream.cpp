#include "dch/testkit/stand_in_stream.h"

#include <memory>

#include "dch/testkit/nats_client.h"
#include "dch/testkit/nats_messages.h"

namespace dch::testkit {

namespace {

// What is published on some subjects.
class Questions {
 public:
  Questions(const std::string& url, const std::string& subjects) : _connection(url) {
    natsSubscription* subscription = nullptr;
    requireDone(natsConnection_SubscribeSync(&subscription, _connection.get(), subjects.c_str()));
    _subscription.reset(subscription);
    requireDone(natsConnection_FlushTimeout(_connection.get(), 60'000));
  }
  ~Questions() { _connection.close(); }

  // Answers the next one, if it comes soon.
  void answerNext(const std::string& answer) {
    natsMsg* question = nullptr;
    if (natsSubscription_NextMsg(&question, _subscription.get(), 50) != NATS_OK) return;
    const NatsMessage questionEnd(question);
    natsConnection_PublishString(_connection.get(), natsMsg_GetReply(question), answer.c_str());
  }

 private:
  const NatsClient _connection;
  NatsSubscription _subscription;
};

}  // namespace

StandInStream::StandInStream(const std::string& url, const std::string& subjects,
                             const std::string& answer) {
  const auto questions = std::make_shared<Questions>(url, subjects);
  _thread = std::thread([this, questions, answer] {
    while (!_isEnding) questions->answerNext(answer);
  });
}

StandInStream::~StandInStream() {
  _isEnding = true;
  _thread.join();
}

}  // namespace dch::testkit
