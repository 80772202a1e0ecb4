// core_test.h: a core with all that it works through, for its tests.
#ifndef DCH_TESTKIT_CORE_TEST_H
#define DCH_TESTKIT_CORE_TEST_H

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "dch/core/core.h"
#include "dch/store/memory_store.h"
#include "dch/testkit/error_log.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/recording_ports.h"

namespace dch {

// What a client is answered.
struct ReadAnswer {
  enum class Form { none, status, statusAndHandle, text };
  Form form = Form::none;
  ZORA_Long status = DCH_STATUS_OK;
  ZORA_Long handle = 0;
  std::string text = {};
};

class CoreTest : public ::testing::Test {
 protected:
  explicit CoreTest(std::unique_ptr<Store> store = std::make_unique<MemoryStore>())
      : _store(std::move(store)) {
    receive(testkit::registerMessage());
  }

  static Origin client(unsigned number = 0, std::uint64_t connection = 0) {
    Origin origin;
    origin.peer.port = htons(static_cast<std::uint16_t>(4711 + number));
    origin.connection = connection;
    return origin;
  }

  void receive(const std::string& bytes, const Origin& origin = client()) {
    // Exactly as long as the message, so that a sanitizer sees what is read beyond it.
    const std::unique_ptr<char[]> received(new char[bytes.size()]);
    bytes.copy(received.get(), bytes.size());
    _core.receive({{received.get(), bytes.size()}, origin, 17});
    EXPECT_EQ(std::string(received.get(), bytes.size()), bytes) << "the message was changed";
  }

  // The one answer to a message.
  ReadAnswer ask(const std::string& bytes, std::uint64_t connection = 0) {
    _answers.sent.clear();
    receive(bytes, client(0, connection));
    return takeAnswer();
  }

  ReadAnswer takeAnswer() {
    if (_answers.sent.empty()) return {};
    EXPECT_EQ(_answers.sent.size(), 1u);
    const std::string message = _answers.sent.front().second;
    _answers.sent.clear();
    if (const auto text = testkit::textOf(message)) return {ReadAnswer::Form::text, 0, 0, *text};
    if (const auto online = testkit::onlineAnswerOf(message))
      return {ReadAnswer::Form::statusAndHandle, online->status, online->handle};
    const auto status = testkit::statusOf(message);
    EXPECT_TRUE(status.has_value());
    return {ReadAnswer::Form::status, status.value_or(-1)};
  }

  ZORA_Long statusOf(const std::string& bytes) {
    const ReadAnswer answer = ask(bytes);
    EXPECT_EQ(answer.form, ReadAnswer::Form::status);
    return answer.status;
  }

  ZORA_Long goOnline(const std::string& group = "load", const std::string& source = "host1") {
    const ReadAnswer answer = ask(testkit::onlineMessage("HOSTMON", group, source));
    EXPECT_EQ(answer.status, DCH_STATUS_OK);
    return answer.handle;
  }

  void expectRefusedOnline(const std::string& bytes, DCH_Status status) {
    const ReadAnswer answer = ask(bytes);
    EXPECT_EQ(answer.form, ReadAnswer::Form::statusAndHandle);
    EXPECT_EQ(answer.status, status);
    EXPECT_EQ(answer.handle, 0);
  }

  // What the client, a subscriber of status, is told because of this message.
  std::vector<std::string> eventsOf(const std::string& bytes) {
    takePushed();
    receive(bytes);
    std::vector<std::string> texts;
    for (const std::string& message : takePushed()) texts.push_back(testkit::eventText(message));
    return texts;
  }

  std::vector<std::string> takePushed(unsigned number = 0) {
    return _rowsOut.take(client(number).peer);
  }

  // How many requests of this code have had this status.
  std::uint64_t requestCount(short code, DCH_Status status = DCH_STATUS_OK) const {
    return _core.requestCounts().of(requestTypeOf(code), status);
  }

  // Whether the client is sent the rows of the group.
  bool isSubscribed(const char* group) {
    const ZORA_Long handle = goOnline(group, "aProbe");
    takePushed();
    receive(testkit::dataMessage(handle));
    return !takePushed().empty();
  }

  const testkit::ErrorLog _log{false};
  Counters _counters;
  testkit::RecordingAnswers _answers;
  testkit::RecordingRowsOut _rowsOut;
  testkit::CountingTimer _timer;
  testkit::RecordingPrograms _programs;
  ActionRules _actionRules{.list = {{"succeed", {"/bin/true"}},
                                    {"last", {"/bin/sleep"}},
                                    {"broken", {"/nowhere/program"}}}};
  std::unique_ptr<Store> _store;
  Core _core{{_answers, _rowsOut, *_store, _timer, _programs}, _actionRules, _counters, _log};
};

}  // namespace dch

#endif  // DCH_TESTKIT_CORE_TEST_H
