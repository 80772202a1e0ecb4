// requests_test.h: Requests with all that they work on, for their tests.
#ifndef DCH_REQUESTS_TEST_H
#define DCH_REQUESTS_TEST_H

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dch/memory_registry.h"
#include "dch/requests.h"
#include "dch/testkit/messages.h"

namespace dch {

class RequestsTest : public ::testing::Test {
 protected:
  explicit RequestsTest(std::unique_ptr<Registry> registry = std::make_unique<MemoryRegistry>())
      : _registry(std::move(registry)) {
    ask(testkit::registerMessage());
  }

  Outcome handle(const std::string& bytes, unsigned int connection = 0) {
    // Exactly as long as the message, so that a sanitizer sees what is read beyond it.
    _received = std::make_unique<char[]>(bytes.size());
    bytes.copy(_received.get(), bytes.size());
    IncomingMessage message;
    message.bytes = _received.get();
    message.received = bytes.size();
    message.connection = connection;
    message.hasSenderName = true;
    message.sender.port = htons(4711);
    const Outcome outcome = _requests.handle(message);
    EXPECT_EQ(message.text(), bytes) << "the message was changed";
    return outcome;
  }

  Answer ask(const std::string& bytes, unsigned int connection = 0) {
    return handle(bytes, connection).answer;
  }

  ZORA_Long statusOf(const std::string& bytes) {
    const Answer answer = ask(bytes);
    EXPECT_EQ(answer.form, Answer::Form::status);
    return answer.status;
  }

  ZORA_Long goOnline(const std::string& group = "load", const std::string& source = "host1") {
    const Answer answer = ask(testkit::onlineMessage("HOSTMON", group, source));
    EXPECT_EQ(answer.status, DCH_STATUS_OK);
    return answer.handle;
  }

  void expectRefusedOnline(const std::string& bytes, DCH_Status status) {
    const Answer answer = ask(bytes);
    EXPECT_EQ(answer.form, Answer::Form::statusAndHandle);
    EXPECT_EQ(answer.status, status);
    EXPECT_EQ(answer.handle, 0);
  }

  // What status subscribers are told because of this message.
  std::vector<std::string> eventsOf(const std::string& bytes) {
    std::vector<std::string> texts;
    for (const StatusEvent& event : handle(bytes).statusEvents)
      texts.push_back(testkit::eventText(event.message));
    return texts;
  }

  std::size_t subscriberCount(const char* group) {
    const Subscribers* const subscribers = _subscriptions.find(topicOf("HOSTMON", group));
    return subscribers != nullptr ? subscribers->size() : 0;
  }

  const EventLog _log{false};
  PushSocket _socket{in_addr{htonl(INADDR_LOOPBACK)}};
  Subscriptions _subscriptions;
  Publisher _publisher{_subscriptions, _socket, _log};
  std::unique_ptr<Registry> _registry;
  ActionList _actionList{{"succeed", {"/bin/true"}}, {"last", {"/bin/sleep", "1000"}}};
  Actions _actions{_actionList, _log};
  Deferrals _deferrals;
  StatusSnapshots _snapshots{*_registry, _publisher};
  Requests _requests{*_registry, _publisher, _snapshots, _actions, _deferrals, _log};
  std::unique_ptr<char[]> _received;
};

}  // namespace dch

#endif  // DCH_REQUESTS_TEST_H
