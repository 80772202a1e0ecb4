#include "dch/testkit/stand_in_stream.h"

#include <chrono>
#include <memory>
#include <stdexcept>

#include "dch/link/nats.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {

namespace {

void require(natsStatus status) {
  if (status != NATS_OK) throw std::runtime_error(natsStatus_GetText(status));
}

// What is published on some subjects.
class Questions {
 public:
  Questions(const std::string& url, const std::string& subjects) {
    natsConnection* connection = nullptr;
    require(natsConnection_ConnectTo(&connection, url.c_str()));
    _connection.reset(connection);
    natsSubscription* subscription = nullptr;
    require(natsConnection_SubscribeSync(&subscription, connection, subjects.c_str()));
    _subscription.reset(subscription);
    require(natsConnection_Flush(connection));
  }

  // Answers the next one, if it comes soon.
  void answerNext(const std::string& answer) {
    natsMsg* question = nullptr;
    if (natsSubscription_NextMsg(&question, _subscription.get(), 50) != NATS_OK) return;
    const NatsMessage questionEnd(question);
    natsConnection_PublishString(_connection.get(), natsMsg_GetReply(question), answer.c_str());
  }

 private:
  NatsConnection _connection;
  NatsSubscription _subscription;
};

}  // namespace

StandInStream::StandInStream(const std::string& url, const std::string& subjects,
                             const std::string& answer) {
  std::shared_ptr<Questions> questions;
  std::string fault;
  const auto connects = [&] {
    try {
      questions = std::make_shared<Questions>(url, subjects);
      return true;
    } catch (const std::runtime_error& error) {  // as when the machine stands still
      fault = error.what();
      return false;
    }
  };
  if (!waitUntil(connects, std::chrono::seconds(60))) throw std::runtime_error(fault);
  _thread = std::thread([this, questions, answer] {
    while (!_isEnding) questions->answerNext(answer);
  });
}

StandInStream::~StandInStream() {
  _isEnding = true;
  _thread.join();
}

}  // namespace dch::testkit
