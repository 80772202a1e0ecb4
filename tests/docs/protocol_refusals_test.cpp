// What docs/protocol.md says of requests that the DCH cannot read, asked of the real program.
#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/messages.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

class Refusals : public ::testing::Test {
 protected:
  ~Refusals() override { EXPECT_EQ(_server.stop(SIGTERM), 0) << _server.standardError(); }

  std::string answerToDatagram(const std::string& request) {
    return UdpClient(_server.port()).ask(request);
  }
  std::string answerOnConnection(const std::string& request) {
    return TcpClient(_server.port()).ask(request);
  }

  // What is answered first is a request that was sent later.
  void expectNoAnswerToDatagram(const std::string& request) {
    UdpClient client(_server.port());
    client.send(request);
    EXPECT_EQ(statusOf(client.ask(unregisterMessage("NONE"))), DCH_STATUS_UNKNOWN_APPLICATION);
  }

 private:
  ServerProcess _server;
};

std::string malformed(int code) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, static_cast<short>(code)).add(DCH_dataCode, short{1});
  });
}

TEST_F(Refusals, AreThoseOfThePage) {
  const OnlineAnswer refusal{DCH_STATUS_MALFORMED, 0};
  EXPECT_EQ(onlineAnswerOf(answerToDatagram(malformed(0x1015))), refusal);
  EXPECT_EQ(onlineAnswerOf(answerOnConnection(malformed(0x1015))), refusal);

  for (const int code : {0x2060, 0x2070, 0x2080, 0x20A0}) {
    expectNoAnswerToDatagram(malformed(code));
    EXPECT_EQ(statusOf(answerOnConnection(malformed(code))), DCH_STATUS_MALFORMED) << code;
  }
  for (const int code : {0x1010, 0x1020, 0x1025, 0x1030, 0x2040, 0x2045, 0x2050, 0x2090, 0x3000}) {
    EXPECT_EQ(statusOf(answerToDatagram(malformed(code))), DCH_STATUS_MALFORMED) << code;
    EXPECT_EQ(statusOf(answerOnConnection(malformed(code))), DCH_STATUS_MALFORMED) << code;
  }

  // Nothing is wrong with these but where they come from.
  EXPECT_EQ(statusOf(answerOnConnection(subscribeMessage("A", "g"))), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(answerOnConnection(statusSubscribeMessage())), DCH_STATUS_MALFORMED);
}

TEST_F(Refusals, AreNotForEmptyDatagramsAndAnswers) {
  expectNoAnswerToDatagram("");
  expectNoAnswerToDatagram(statusAnswer(DCH_STATUS_MALFORMED));
  expectNoAnswerToDatagram(onlineAnswer(DCH_STATUS_OK, 1));
  expectNoAnswerToDatagram(messageOf(
      [](DCH_MessageBuilder& message) { message.addBytes(DCH_response, "A,KEY,NODP,g,1\n", 15); }));
}

TEST_F(Refusals, AreNotForRequestsWithoutTheirOptionalField) {
  const std::string all = catalogueMessage(DCH_REQUEST_APPLICATIONS);
  EXPECT_TRUE(textOf(answerToDatagram(all)));
  EXPECT_TRUE(textOf(answerToDatagram(catalogueMessage(DCH_REQUEST_APPLICATIONS, "NONE"))));
  expectNoAnswerToDatagram(actionMessage("none", 7));
  EXPECT_EQ(statusOf(answerToDatagram(actionResultsMessage(7))), DCH_STATUS_UNKNOWN_ACTION);
}

}  // namespace
}  // namespace dch::testkit
