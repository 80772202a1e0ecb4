// What the real program makes of clients that mean no good: it answers or ignores them, and serves
// on.
#include <gtest/gtest.h>
#include <signal.h>

#include <functional>
#include <list>
#include <random>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/messages.h"
#include "tests/support/text_count.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

class ZordchdHostileTest : public ::testing::Test {
 protected:
  ~ZordchdHostileTest() override {
    expectServes();
    EXPECT_EQ(_server.stop(SIGTERM), 0) << _server.standardError();
  }

  void expectServes() {
    UdpClient client(_server.port());
    EXPECT_EQ(statusOf(client.ask(registerMessage())), DCH_STATUS_OK);
    const auto online = onlineAnswerOf(client.ask(onlineMessage("HOSTMON", "load", "host1")));
    ASSERT_TRUE(online);
    EXPECT_EQ(statusOf(client.ask(dataMessage(online->handle, {{"load1", 'D', "1"}}))),
              DCH_STATUS_OK);
    TcpClient connection(_server.port());
    EXPECT_EQ(statusOf(connection.ask(registerMessage())), DCH_STATUS_OK);
  }

  bool saidReadyOnce() const {
    return countOf("\n", _server.standardOutput()) == 2;  // that it is ready, and its state
  }

  // Sends them as fast as the server takes them: what overflows its socket would prove nothing.
  void flood(int count, const std::function<std::string(int)>& messageOfRound) {
    constexpr int burst = 50;
    UdpClient hostile(_server.port()), pacemaker(_server.port());
    for (int round = 0; round < count; ++round) {
      hostile.send(messageOfRound(round));
      if (round % burst != 0) continue;
      ASSERT_EQ(statusOf(pacemaker.ask(unregisterMessage("NONE"))), DCH_STATUS_UNKNOWN_APPLICATION);
    }
    ASSERT_EQ(statusOf(pacemaker.ask(unregisterMessage("NONE"))), DCH_STATUS_UNKNOWN_APPLICATION);
  }

  void expectMalformed(const std::string& message) {
    UdpClient client(_server.port());
    EXPECT_EQ(statusOf(client.ask(message)), DCH_STATUS_MALFORMED) << message.size() << " bytes";
  }

  ServerProcess _server;
};

// A message with a length word that is right and these bytes in place of fields.
std::string raw(const std::string& fields) {
  return withLengthWord("0123" + fields, static_cast<std::uint32_t>(4 + fields.size()));
}

std::string field(std::uint16_t type, std::uint32_t count, const std::string& value) {
  std::string bytes;
  for (const int shift : {8, 0}) bytes += static_cast<char>(type >> shift);
  for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>(count >> shift);
  return bytes + value;
}

const std::string onlineCode = field(DCH_requestType, 2, "\x10\x15");
const std::string unregisterCode = field(DCH_requestType, 2, "\x10\x20");
const std::string offlineCode = field(DCH_requestType, 2, "\x10\x25");
const std::string dataCode = field(DCH_requestType, 2, "\x10\x30");
const std::string nullHandle = field(DCH_handle, 4, std::string(4, '\0'));

TEST_F(ZordchdHostileTest, RefusesLengthWordsThatAreWrong) {
  const std::string good = unregisterMessage("HOSTMON");
  const auto size = static_cast<std::uint32_t>(good.size());
  for (const std::uint32_t length :
       {0u, 1u, 3u, 4u, size - 1, size + 1, 4096u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
    expectMalformed(withLengthWord(good, length));
    expectMalformed(withLengthWord("0123", length == 4 ? 5 : length));
  }
  for (const char* tooShort : {"a", "ab", "abc"}) expectMalformed(tooShort);
}

TEST_F(ZordchdHostileTest, RefusesADatagramThatIsCutOnReceipt) {
  std::string text = "appl:HOSTMON,HMN;group:load;";
  for (int i = 0; i < 500; ++i) text += "attr:attribute" + std::to_string(i) + ",N,4;";
  ASSERT_GT(text.size(), 8192u);
  expectMalformed(registerMessage(text));
}

TEST_F(ZordchdHostileTest, RefusesFieldsThatDoNotFit) {
  const std::string name("HOSTMON", 8);
  for (const std::string& fields :
       {std::string(),
        std::string("\0", 1),
        std::string("\0\x10\0\0\0", 5),
        field(DCH_requestType, 2, ""),
        field(DCH_requestType, 2, "\x10"),
        field(DCH_requestType, 4, std::string("\0\0\x10\x20", 4)),
        field(DCH_requestType, 0xffffffff, "\x10\x20"),
        unregisterCode,
        unregisterCode + field(DCH_applName, 8, "HOSTMON"),
        unregisterCode + field(DCH_applName, 7, "HOSTMON"),
        unregisterCode + field(DCH_applName, 0, ""),
        unregisterCode + field(DCH_applName, 9, name),
        unregisterCode + field(DCH_applName, 0x7fffffff, name),
        unregisterCode + field(DCH_applName, 0x80000000, name),
        unregisterCode + field(DCH_applName, 0xffffffff, name),
        unregisterCode + field(DCH_applName, 0xfffffff8, name),
        unregisterCode + field(DCH_applKey, 8, name),
        unregisterCode + field(DCH_applName, 8, name) + "x",
        unregisterCode + field(DCH_applName, 8, name) + field(DCH_applName, 8, name),
        offlineCode + field(DCH_handle, 2, std::string(2, '\0')),
        offlineCode + field(DCH_handle, 8, std::string(8, '\0')),
        offlineCode + field(DCH_handle, 4, "\x01"),
        dataCode + nullHandle,
        dataCode + nullHandle + field(DCH_dataCode, 4, "abcd"),
        dataCode + field(DCH_dataCode, 2, "ab") + nullHandle})
    expectMalformed(raw(fields));
  UdpClient client(_server.port());
  EXPECT_EQ(onlineAnswerOf(client.ask(raw(onlineCode + field(DCH_applName, 80, name)))),
            (OnlineAnswer{DCH_STATUS_MALFORMED, 0}));
}

TEST_F(ZordchdHostileTest, RefusesRowsWhoseAttributesDoNotFit) {
  UdpClient client(_server.port());
  client.ask(registerMessage());
  const auto online = onlineAnswerOf(client.ask(onlineMessage("HOSTMON", "load", "host1")));
  ASSERT_TRUE(online);
  const std::string head = dataMessage(online->handle).substr(4);
  const std::string name = field(DCH_attrName, 6, std::string("load1", 6));
  for (const std::string& fields :
       {name, name + field(DCH_attrValue, 0, ""), name + field(DCH_attrValue, 5, "D123"),
        name + field(DCH_attrValue, 0xffffffff, "D123"), name + name,
        name + field(DCH_attrValue, 18, "D" + std::string(17, 'x')),
        field(DCH_attrName, 5, "load1") + field(DCH_attrValue, 2, "D1"), std::string("x")})
    expectMalformed(raw(head + fields));
}

TEST_F(ZordchdHostileTest, TakesNoDatagramForANotice) {
  for (const char* notice : {"IPC-SERVER_READY", "DP-DISCONNECT", "RESEND_MESSAGE", "SERVER_STOP",
                             "PROGRAM_ENDED", "REPORT_WANTED", "TIME_IS_UP"})
    expectMalformed(notice);
  EXPECT_TRUE(saidReadyOnce());
}

TEST_F(ZordchdHostileTest, AnswersABrokenMessageOnAConnectionWith100) {
  const std::string good = registerMessage();
  for (const std::string& broken :
       {withLengthWord(good, 0), withLengthWord(good, 1), withLengthWord(good, 3),
        withLengthWord(good, 4), withLengthWord(good, static_cast<std::uint32_t>(good.size() - 1)),
        withLengthWord(good, 0x80000000), withLengthWord(good, 0xffffffff)}) {
    TcpClient client(_server.port());
    EXPECT_EQ(statusOf(client.ask(broken)), DCH_STATUS_MALFORMED);
  }
}

TEST_F(ZordchdHostileTest, TakesNoTextOnAConnectionForANotice) {
  for (const char* notice : {"IPC-SERVER_READY", "DP-DISCONNECT", "RESEND_MESSAGE"}) {
    TcpClient client(_server.port());
    client.send(notice);
    // Its first bytes are a length that never comes; the connection may be closed before the
    // answer.
    client.finishSending();
    const std::string answer = client.receive().value_or("no answer and no end");
    EXPECT_TRUE(answer.empty() || statusOf(answer) == DCH_STATUS_MALFORMED) << notice;
  }
  EXPECT_TRUE(saidReadyOnce());
}

TEST_F(ZordchdHostileTest, ServesOnWhenConnectionsBreakOff) {
  for (std::size_t length = 0; length < 40; ++length) {
    TcpClient client(_server.port());
    client.send(registerMessage().substr(0, length));
  }
}

TEST_F(ZordchdHostileTest, ServesOnWhenManyClientsDoNotReadTheirAnswers) {
  std::list<TcpClient> clients;
  for (int i = 0; i < 20; ++i) {
    TcpClient& client = clients.emplace_back(_server.port());
    for (int message = 0; message < 50; ++message) client.send(unregisterMessage("NONE"));
  }
}

TEST_F(ZordchdHostileTest, ServesOnAfterGarbage) {
  std::mt19937 random(20260131);
  flood(3000, [&](int round) {
    std::string garbage(1 + random() % 200, '\0');
    for (char& byte : garbage) byte = static_cast<char>(random());
    return round % 2 == 0 ? garbage : raw(garbage);
  });
}

TEST_F(ZordchdHostileTest, ServesOnAfterGoodMessagesWithSomeBytesChanged) {
  std::mt19937 random(20260131);
  const std::vector<std::string> good = requestsOfEachKind("HOSTMON", 1);
  flood(6000, [&](int round) {
    std::string message = good[static_cast<std::size_t>(round) % good.size()];
    for (int change = 0; change < 3; ++change)
      message[4 + random() % (message.size() - 4)] = static_cast<char>(random());
    return message;
  });
}

TEST_F(ZordchdHostileTest, ServesOnAfterGarbageOnConnections) {
  std::mt19937 random(20260131);
  for (int i = 0; i < 200; ++i) {
    std::string garbage(1 + random() % 9000, '\0');
    for (char& byte : garbage) byte = static_cast<char>(random());
    TcpClient client(_server.port());
    client.send(i % 2 == 0 ? garbage : raw(garbage));
    // Waits until the server is done with it: not many connections can wait to be accepted.
    client.finishSending();
    EXPECT_TRUE(client.receive());
  }
}

}  // namespace
}  // namespace dch::testkit
