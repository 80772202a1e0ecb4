// How long others wait for the real program while a client means no good.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <list>
#include <random>
#include <system_error>

#include "dch/net/descriptor.h"
#include "dch/testkit/bystander.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/log_pipe.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/temporary_files.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

constexpr int manyConnections = 100;

class ZordchdMeanwhileTest : public ::testing::Test {
 protected:
  ~ZordchdMeanwhileTest() override {
    EXPECT_EQ(_server.stop(SIGTERM), 0) << _server.standardError();
  }

  // Waits until the server has done what came before, so that not more is sent than it takes.
  void keepPace() const {
    EXPECT_EQ(statusOf(_pacemaker.ask(unregisterMessage("NONE"))), DCH_STATUS_UNKNOWN_APPLICATION);
  }
  void flood(const std::function<std::string()>& next) const {
    constexpr int burst = 50;
    for (int i = 0; i < burst; ++i) _hostile.send(next());
    keepPace();
  }

  // Of another address than all other clients have, to which no limit applies that keeps it away.
  Descriptor stranger(int type) const {
    Descriptor socket(::socket(AF_INET, type | SOCK_CLOEXEC, 0));
    sockaddr_in address = loopbackAddress(0);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
    EXPECT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    address = loopbackAddress(_server.port());
    EXPECT_EQ(connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
              0);
    return socket;
  }

  // An application with many groups of long names.
  void registerLarge(const std::string& name) const {
    std::string text = "appl:" + name + ",KEY;";
    for (int i = 10; i < 40; ++i)
      text += "group:" + std::string(28, 'g') + std::to_string(i) + ";attr:value,N,4;";
    EXPECT_EQ(statusOf(_hostile.ask(registerMessage(text, name, "KEY"))), DCH_STATUS_OK);
  }
  // Returns a question whose answer is as long as one can be.
  std::string makeLongAnswer() const {
    for (int i = 0; i < 150; ++i) registerLarge("LARGE" + std::to_string(i));
    return catalogueMessage(DCH_REQUEST_APPLICATIONS);
  }

  const TemporaryFile _configuration{
      "[channel]\nallow = ['127.0.0.1']\nconnections = 150\n[log]\nverbose = true\n"};
  const TemporaryFile _actions{"lasting /bin/sleep 1000\n"};
  // Nobody reads its log.
  ServerProcess _server{{"--config", _configuration.path(), "--actions", _actions.path()},
                        takeALogThatNobodyReads};
  const UdpClient _hostile{_server.port()}, _pacemaker{_server.port()};
  const Bystander _bystander{_server.port()};
};

TEST_F(ZordchdMeanwhileTest, DatagramsThatAreTooLong) {
  const std::string message = withLengthWord("0123" + std::string(60'000, 'x'), 60'004);
  _bystander.expectIsServed([&] {
    _hostile.send(message);
    keepPace();
  });
}

TEST_F(ZordchdMeanwhileTest, DatagramsOfGarbage) {
  std::mt19937 random(20260131);
  _bystander.expectIsServed([&] {
    flood([&] {
      std::string garbage(4 + random() % 200, '\0');
      for (char& byte : garbage) byte = static_cast<char>(random());
      return withLengthWord(garbage, static_cast<std::uint32_t>(garbage.size()));
    });
  });
}

TEST_F(ZordchdMeanwhileTest, RequestsFromWhereNoneAreAllowed) {
  const Descriptor datagrams = stranger(SOCK_DGRAM);
  const std::string question = catalogueMessage(DCH_REQUEST_APPLICATIONS);
  _bystander.expectIsServed([&] {
    for (int i = 0; i < 50; ++i) ::send(datagrams.get(), question.data(), question.size(), 0);
    const Descriptor connection = stranger(SOCK_STREAM);
    ::send(connection.get(), question.data(), question.size(), MSG_NOSIGNAL);
    keepPace();
  });
}

TEST_F(ZordchdMeanwhileTest, MessagesOfConnectionsThatStopInTheMiddle) {
  std::list<TcpClient> stalling;
  for (int i = 0; i < manyConnections; ++i)
    stalling.emplace_back(_server.port()).send(registerMessage().substr(0, 20));
  _bystander.expectIsServed();
}

TEST_F(ZordchdMeanwhileTest, MessagesOfConnectionsThatAreTooLong) {
  const std::string message = withLengthWord("0123" + std::string(100'000, 'x'), 4 << 20);
  _bystander.expectIsServed([&] {
    const TcpClient client(_server.port());
    client.send(message);
    EXPECT_EQ(statusOf(client.receive().value_or("")), DCH_STATUS_MALFORMED);
  });
}

TEST_F(ZordchdMeanwhileTest, ConnectionsThatDoNotReadTheirAnswers) {
  const std::string question = makeLongAnswer();
  std::string questions;
  for (int i = 0; i < 100; ++i) questions += question;
  std::list<TcpClient> greedy;
  for (int i = 0; i < manyConnections; ++i) greedy.emplace_back(_server.port()).send(questions);
  _bystander.expectIsServed([&] {
    for (const TcpClient& each : greedy)
      ::send(each.descriptor(), questions.data(), questions.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    keepPace();
  });
}

TEST_F(ZordchdMeanwhileTest, MoreConnectionsThanThereMayBe) {
  std::list<TcpClient> open;
  for (int i = 0; i < 150; ++i) open.emplace_back(_server.port());
  _bystander.expectIsServed([&] { TcpClient(_server.port()).receive(); });
}

TEST_F(ZordchdMeanwhileTest, LongAnswersForManyWhoDoNotReadThem) {
  const std::string question = makeLongAnswer();
  std::list<UdpClient> askers;
  for (int i = 0; i < manyConnections; ++i) askers.emplace_back(_server.port());
  auto next = askers.begin();
  _bystander.expectIsServed([&] {
    for (int i = 0; i < 10; ++i) {
      next->send(question);
      if (++next == askers.end()) next = askers.begin();
    }
    keepPace();
  });
}

TEST_F(ZordchdMeanwhileTest, ApplicationsThatComeAndGo) {
  _bystander.expectIsServed([&] {
    registerLarge("LARGE");
    for (int i = 0; i < 50; ++i)
      _hostile.ask(onlineMessage("LARGE", std::string(28, 'g') + "10", "host" + std::to_string(i)));
    EXPECT_EQ(statusOf(_hostile.ask(unregisterMessage("LARGE"))), DCH_STATUS_OK);
  });
}

TEST_F(ZordchdMeanwhileTest, SubscribersThatDoNotRead) {
  std::list<UdpClient> subscribers;
  for (int i = 0; i < 200; ++i) {
    subscribers.emplace_back(_server.port()).send(subscribeMessage("HOSTMON", "load"));
    subscribers.back().send(statusSubscribeMessage());
    if (i % 20 == 0) keepPace();
  }
  EXPECT_EQ(statusOf(_hostile.ask(registerMessage())), DCH_STATUS_OK);
  const auto online = onlineAnswerOf(_hostile.ask(onlineMessage("HOSTMON", "load", "host1")));
  ASSERT_TRUE(online);
  const std::string row = dataMessage(online->handle, {{"load1", 'D', "1"}});
  _bystander.expectIsServed([&] { EXPECT_EQ(statusOf(_hostile.ask(row)), DCH_STATUS_OK); });
}

TEST_F(ZordchdMeanwhileTest, SubscribersThatAreGone) {
  EXPECT_EQ(statusOf(_hostile.ask(registerMessage())), DCH_STATUS_OK);
  const auto online = onlineAnswerOf(_hostile.ask(onlineMessage("HOSTMON", "load", "host1")));
  ASSERT_TRUE(online);
  const std::string row = dataMessage(online->handle, {{"load1", 'D', "1"}});
  std::list<int> ports;
  for (int i = 0; i < 20; ++i) ports.push_back(portToLeave());
  _bystander.expectIsServed([&] {
    for (const int port : ports) {
      try {
        const UdpClient gone(_server.port(), port);
        gone.send(subscribeMessage("HOSTMON", "load"));
        gone.send(statusSubscribeMessage());
      } catch (const std::system_error&) {
        // Another test has the port.
      }
    }
    EXPECT_EQ(statusOf(_hostile.ask(row)), DCH_STATUS_OK);
  });
}

TEST_F(ZordchdMeanwhileTest, ActionsThatDoNotEnd) {
  std::list<UdpClient> waiting;
  for (ZORA_Long id = 1; id <= 100; ++id) {
    waiting.emplace_back(_server.port()).send(actionMessage("lasting", id));
    waiting.back().send(actionResultsMessage(id));
  }
  ZORA_Long next = 100;
  _bystander.expectIsServed([&] { flood([&] { return actionMessage("lasting", ++next); }); });
}

}  // namespace
}  // namespace dch::testkit
