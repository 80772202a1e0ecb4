// The real program, linked: its rows reach the stream, and its clients notice nothing of what
// becomes of that.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "dch/testkit/clients.h"
#include "dch/testkit/jet_stream.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/reported_counters.h"
#include "dch/testkit/row_asker.h"
#include "dch/testkit/server_process.h"
#include "dch/testkit/store_test.h"
#include "dch/testkit/stream_reader.h"
#include "dch/testkit/tcp_gate.h"
#include "tests/support/temporary_files.h"
#include "tests/support/wait_until.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class ZordchdLinkTest : public ::testing::Test {
 protected:
  ServerProcess::Arguments linkedWith(const std::string& url, const std::string& more = "") const {
    _file.write("[link]\nservers = ['" + url + "']\nsite = 'west'\n" + more);
    return {"--config", _file.path(), "--store", path()};
  }
  std::string path() const { return _file.folder().path() + "/state.db"; }

  // A client with a source on line.
  struct Provider {
    explicit Provider(int port) : client(port) {
      EXPECT_EQ(statusOf(client.ask(registerMessage())), DCH_STATUS_OK);
      handle = handleOf(client.ask(onlineMessage("HOSTMON", "load", "host1")));
    }
    void sendRows(int count) const {
      for (int row = 0; row < count; ++row)
        ASSERT_EQ(statusOf(client.ask(dataMessage(handle, {{"load1", 'D', std::to_string(row)}}))),
                  DCH_STATUS_OK);
    }

    const TcpClient client;
    ZORA_Long handle;
  };

  static bool isAllPublished(const ServerProcess& server) {
    const auto isNoneBehind = [&] {
      kill(server.processId(), SIGUSR1);
      return reported(server, "link_changes_behind") == 0;
    };
    return waitUntil(isNoneBehind, linkPatience);
  }

  // What it has said of the link, in its order.
  static std::vector<std::string> linkLines(const ServerProcess& server) {
    std::vector<std::string> found;
    std::istringstream lines(server.standardError());
    for (std::string line; std::getline(lines, line);)
      if (line.find("link: ") != std::string::npos) found.push_back(line);
    return found;
  }

  const TemporaryFile _file{"", "zordchd.toml"};
};

TEST_F(ZordchdLinkTest, RowsThatItAcknowledgesReachTheStream) {
  const NatsServer nats;
  ServerProcess server(linkedWith(nats.url()));
  Provider(server.port()).sendRows(30);
  EXPECT_EQ(readStream(nats.url(), 30).size(), 30u);
  EXPECT_TRUE(server.waitForError("link: linked with " + nats.url() + " as site west"));
  EXPECT_TRUE(isAllPublished(server));
  EXPECT_EQ(reported(server, "link_rows_published"), 30);
  EXPECT_TRUE(comesTo(server, "link_connected", 1));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdLinkTest, RowsThatItAcknowledgesCanBeAskedFor) {
  const NatsServer nats;
  ServerProcess server(linkedWith(nats.url()));
  EXPECT_TRUE(comesTo(server, "link_connected", 1));
  Provider(server.port()).sendRows(30);
  EXPECT_EQ(RowAsker(nats.url()).fetchAll("west", {}).rows.size(), 30u);
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdLinkTest, WhatItPublishedIsNotPublishedAgainByTheNextOne) {
  const NatsServer nats;
  {
    ServerProcess server(linkedWith(nats.url()));
    Provider(server.port()).sendRows(5);
    EXPECT_TRUE(isAllPublished(server));
    EXPECT_EQ(server.stop(SIGTERM), 0);
  }
  EXPECT_EQ(query(path(), "SELECT position FROM publishing"),
            query(path(), "SELECT max(number) FROM rows_1"));
  ServerProcess server(linkedWith(nats.url()));
  EXPECT_TRUE(isAllPublished(server));
  EXPECT_EQ(reported(server, "link_rows_published"), 0);
  Provider(server.port()).sendRows(1);
  EXPECT_EQ(readStream(nats.url(), 6).size(), 6u);
  EXPECT_TRUE(comesTo(server, "link_rows_published", 1));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdLinkTest, ItsClientsNoticeNothingWhileTheLinkIsLostAndMadeAgain) {
  NatsServer nats;
  askJetStream(nats.url(), "CREATE", R"({"duplicate_window": 3600000000000})");
  TcpGate gate(nats.port());
  ServerProcess server(linkedWith(gate.natsUrl()));
  const Provider provider(server.port());
  provider.sendRows(10);
  readStream(nats.url(), 10);
  gate.hold();
  provider.sendRows(10);
  gate.cut();
  provider.sendRows(10);
  nats.kill();
  provider.sendRows(10);
  nats.restart();
  gate.leadTo(nats.port());
  gate.pass();
  provider.sendRows(10);
  EXPECT_EQ(readStream(nats.url(), 50).size(), 50u);
  EXPECT_TRUE(isAllPublished(server));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdLinkTest, SaysOnceWhyItIsNotLetIn) {
  const NatsServer nats({.more = "authorization { user: west, password: right }"});
  const std::string credentials = _file.folder().path() + "/credentials";
  std::ofstream(credentials) << "west:wrong\n";
  std::filesystem::permissions(credentials, std::filesystem::perms::owner_read);
  ServerProcess server(linkedWith(nats.url(), "credentials = '" + credentials + "'\n"));
  const Provider provider(server.port());
  EXPECT_TRUE(server.waitForError("it refuses the user 'west' or the password"));
  EXPECT_TRUE(comesTo(server, "link_failures", 3));
  provider.sendRows(3);
  // A machine that stood still may bring another fault in between.
  const std::vector<std::string> lines = linkLines(server);
  EXPECT_EQ(std::adjacent_find(lines.begin(), lines.end()), lines.end()) << server.standardError();
  EXPECT_THAT(server.standardError(), Not(HasSubstr("wrong\n")));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdLinkTest, LetsItInWithWhatTheFileOfCredentialsSays) {
  const NatsServer nats({.more = "authorization { user: west, password: right }"});
  const std::string credentials = _file.folder().path() + "/credentials";
  std::ofstream(credentials) << "west:right\n";
  ServerProcess server(linkedWith(nats.url(), "credentials = '" + credentials + "'\n"));
  EXPECT_TRUE(server.waitForError("link: linked with " + nats.url()));
  EXPECT_TRUE(server.waitForError("everybody on this machine may read the user and password"));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdLinkTest, EndsAlthoughItsServerStandsStill) {
  const NatsServer nats;
  ServerProcess server(linkedWith(nats.url()));
  EXPECT_TRUE(server.waitForError("link: linked with "));
  nats.stop();
  Provider(server.port()).sendRows(20);
  EXPECT_EQ(server.stop(SIGTERM), 0);
  nats.resume();
}

TEST_F(ZordchdLinkTest, PublishesNothingWithoutAFileAndSaysSo) {
  const NatsServer nats;
  linkedWith(nats.url());
  ServerProcess server({"--config", _file.path(), "--store", "memory"});
  EXPECT_TRUE(server.waitForError("link: no rows are published, as the state is in memory"));
  Provider(server.port()).sendRows(3);
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdLinkTest, StaysLinkedAsItIsWhenTheFileIsReadAgain) {
  const NatsServer nats;
  ServerProcess server(linkedWith(nats.url()));
  EXPECT_TRUE(server.waitForError("link: linked with "));
  _file.write("[link]\nservers = ['" + nats.url() + "']\nsite = 'east'\n");
  kill(server.processId(), SIGHUP);
  EXPECT_TRUE(server.waitForError("[link] stays as it is until the next start"));
  Provider(server.port()).sendRows(1);
  EXPECT_EQ(readStream(nats.url(), 1).front().subject, "zord.rows.west.HOSTMON.load");
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

}  // namespace
}  // namespace dch::testkit
