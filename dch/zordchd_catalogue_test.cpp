// What consumers that ask the real program about applications get, through the library and beside
// it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <list>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"
#include "zordchcl/zordchcl.h"

namespace dch::testkit {
namespace {

using ::testing::EndsWith;
using ::testing::StartsWith;

class ZordchdCatalogueTest : public ::testing::Test {
 protected:
  using Query = int (*)(ZORA_Long*, char**, const char*, short);

  ZordchdCatalogueTest() {
    setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
    setenv("ZORA_DCH_PORT", std::to_string(_server.port()).c_str(), 1);
  }
  ~ZordchdCatalogueTest() override {
    EXPECT_EQ(_server.stop(SIGTERM), 0) << _server.standardError();
  }

  void registerText(const std::string& text, const std::string& name, const std::string& key) {
    ASSERT_EQ(statusOf(_provider.ask(registerMessage(text, name, key))), DCH_STATUS_OK);
  }

  // Registers 200 applications of 20 attributes each.
  void registerMany(int groups) {
    const std::string help(100, 'h');
    for (int number = 0; number < 200; ++number) {
      const std::string name = "APPLICATION" + std::to_string(1000 + number);
      std::string text = "appl:" + name + ",KEY;help:" + help + ';', groupNames;
      for (int group = 0; group < groups; ++group) {
        const std::string groupName = std::string(30, 'g') + std::to_string(10 + group);
        text += "group:" + groupName + ';';
        groupNames += (group == 0 ? "" : " ") + groupName;
        for (int i = 0; i < 20 / groups; ++i)
          text += "attr:attribute" + std::to_string(i) + ",N,4," + help + ';';
      }
      registerText(text, name, "KEY");
      _lines += name + ",KEY,NODP," + groupNames + ",0\n";
    }
  }

  // What the library's function gets; nothing when it fails.
  static std::optional<std::string> ask(Query query, const char* name) {
    ZORA_Long length = 0;
    char* buffer = nullptr;
    constexpr short waitSeconds = 20;
    if (query(&length, &buffer, name, waitSeconds) != 0) return std::nullopt;
    std::string text(buffer, static_cast<std::size_t>(length));
    std::free(buffer);
    return text;
  }

  ServerProcess _server;
  UdpClient _provider{_server.port()};
  std::string _lines;  // of the applications that registerMany registered
};

TEST_F(ZordchdCatalogueTest, AnswersTheLibrarysQuestions) {
  registerText(
      "appl:HOSTMON,HMN;type:SOCK;help:Watches hosts;group:load;attr:load1,D,16,a minute;"
      "group:disk;attr:name,T,32;",
      "HOSTMON", "HMN");
  registerText("appl:APPMON,APM;group:g;attr:a,C,1;", "APPMON", "APM");
  ASSERT_TRUE(onlineAnswerOf(_provider.ask(onlineMessage("HOSTMON", "load", "host1"))));
  EXPECT_EQ(ask(dc_getApplications, nullptr),
            "APPMON,APM,NODP,g,0\nHOSTMON,HMN,SOCK,load disk,1\n");
  EXPECT_EQ(ask(dc_getApplications, "HOSTMON"), "HOSTMON,HMN,SOCK,load disk,1\n");
  EXPECT_EQ(ask(dc_getApplAttributes, "HOSTMON"), "load,load1,D,16,a minute\ndisk,name,T,32,\n");
  EXPECT_EQ(ask(dc_getApplHelp, "HOSTMON"), "Watches hosts");
  // The library takes an empty answer for a failure.
  EXPECT_EQ(ask(dc_getApplications, "NONE"), std::nullopt);
  EXPECT_EQ(ask(dc_getApplHelp, "APPMON"), std::nullopt);
}

TEST_F(ZordchdCatalogueTest, GivesTheLibraryAnAnswerOfSeveralDatagrams) {
  registerMany(4);
  ASSERT_GT(_lines.size(), 2 * 8192u);
  EXPECT_TRUE(ask(dc_getApplications, nullptr) == _lines);
}

// Such a client takes only what comes from the port that it asked.
TEST_F(ZordchdCatalogueTest, GivesAStrictClientAnAnswerOfSeveralDatagrams) {
  setenv("ZOR0_STRICT_ANSWERS", "Y", 1);
  registerMany(2);
  ASSERT_GT(_lines.size(), 8192u);
  EXPECT_TRUE(ask(dc_getApplications, nullptr) == _lines);
}

TEST_F(ZordchdCatalogueTest, CutsAnAnswerThatIsLongerThanTheLibraryReads) {
  registerMany(20);
  ASSERT_GT(_lines.size(), 131072u);
  const auto answer = ask(dc_getApplications, nullptr);
  ASSERT_TRUE(answer);
  EXPECT_THAT(*answer, EndsWith("\n#truncated\n"));
  EXPECT_GT(answer->size(), 130'000u);
  const std::string lines = answer->substr(0, answer->size() - std::string("#truncated\n").size());
  EXPECT_TRUE(_lines.starts_with(lines));
}

TEST_F(ZordchdCatalogueTest, AnswersAProviderWhileALongAnswerIsUnderWay) {
  registerMany(4);
  registerText(hostmonRegistration, "HOSTMON", "HMN");
  const auto online = onlineAnswerOf(_provider.ask(onlineMessage("HOSTMON", "load", "host1")));
  ASSERT_TRUE(online);
  const std::string row = dataMessage(online->handle, {{"load1", 'D', "0.42"}});
  UdpClient consumer(_server.port());
  std::string answer = consumer.ask(catalogueMessage(DCH_REQUEST_APPLICATIONS));
  ASSERT_EQ(answer.size(), 8192u);
  int rowsAnswered = 0;
  while (!textOf(answer)) {
    ASSERT_EQ(statusOf(_provider.ask(row)), DCH_STATUS_OK);
    ++rowsAnswered;
    constexpr int noWait = 0;
    while (const auto datagram = consumer.receive(noWait)) answer += *datagram;
  }
  // A server that is held up answers the first row after the last datagram.
  EXPECT_GT(rowsAnswered, 1);
  EXPECT_TRUE(textOf(answer) == _lines + "HOSTMON,HMN,SOCK,load disk,1\n");
}

// It has given up, or it is another client on the port of one that is gone.
TEST_F(ZordchdCatalogueTest, SendsNoMoreOfALongAnswerToAClientThatAsksSomethingElse) {
  registerMany(20);  // an answer that takes a quarter of a minute
  UdpClient consumer(_server.port());
  EXPECT_EQ(consumer.ask(catalogueMessage(DCH_REQUEST_APPLICATIONS)).size(), 8192u);
  consumer.send(offlineMessage(4711));
  std::optional<std::string> datagram = consumer.receive();
  while (datagram && !statusOf(*datagram)) datagram = consumer.receive();
  ASSERT_TRUE(datagram);
  EXPECT_EQ(statusOf(*datagram), DCH_STATUS_UNKNOWN_HANDLE);
  constexpr int moreThanAPauseMilliseconds = 2500;
  EXPECT_EQ(consumer.receive(moreThanAPauseMilliseconds), std::nullopt);
}

TEST_F(ZordchdCatalogueTest, AnswersOnAConnectionAtOnce) {
  registerMany(20);
  TcpClient client(_server.port());
  std::string answer = client.ask(catalogueMessage(DCH_REQUEST_APPLICATIONS));
  while (!textOf(answer)) {
    const std::string more = client.receive().value_or("");
    ASSERT_NE(more, "") << "only " << answer.size() << " bytes";
    answer += more;
  }
  EXPECT_LE(answer.size(), 131072u);
  EXPECT_THAT(*textOf(answer), EndsWith("\n#truncated\n"));
}

TEST_F(ZordchdCatalogueTest, ServesOnWhenThoseWhoAskAreGone) {
  registerMany(4);
  {
    std::list<UdpClient> leaving;
    for (int i = 0; i < 3; ++i)
      leaving.emplace_back(_server.port(), portToLeave())
          .send(catalogueMessage(DCH_REQUEST_APPLICATIONS));
  }
  EXPECT_EQ(ask(dc_getApplications, "APPLICATION1000"), _lines.substr(0, _lines.find('\n') + 1));
}

}  // namespace
}  // namespace dch::testkit
