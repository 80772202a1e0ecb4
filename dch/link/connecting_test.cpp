// What is said when no connection to a server can be had.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "dch/link/server_connection.h"
#include "dch/net/descriptor.h"
#include "dch/testkit/certificates.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_server.h"
#include "tests/support/sockets.h"
#include "tests/support/temporary_files.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {

namespace {

constexpr char silence[] = "no answer within a second: it stands still, or is no NATS server";
constexpr char nobody[] = "nothing listens there, or there is no such host";

void expectFault(const std::string& server, const std::string& expected,
                 const LinkSettings& settings = settingsFor()) {
  EXPECT_EQ(connectFault(server, expected, settings), expected);
}

std::string urlOf(int port, const std::string& host = "127.0.0.1") {
  return "nats://" + host + ":" + std::to_string(port);
}

// Greets each of those who connect, and says nothing more; or closes the connection then.
class Greeter {
 public:
  enum class Then { close, wait };
  Greeter(std::string greeting, Then then)
      : _greeting(std::move(greeting)), _then(then), _thread([this] { greetAll(); }) {}
  ~Greeter() {
    _isEnding = true;
    const StreamSocket last(port());
    _thread.join();
  }

  int port() const { return _listener.port(); }
  int greeted() const { return _greeted; }

 private:
  void greetAll() {
    while (true) {
      const StreamSocket client(_listener);
      if (_isEnding) return;
      client.send(_greeting);
      ++_greeted;
      if (_then == Then::wait) waitUntil([&] { return isGone(client); }, linkPatience);
    }
  }
  bool isGone(const StreamSocket& client) const {
    const auto bytes = client.tryReceive(1);
    return _isEnding || (bytes && bytes->empty());
  }

  const std::string _greeting;
  const Then _then;
  const StreamListener _listener;
  std::atomic<bool> _isEnding = false;
  std::atomic<int> _greeted = 0;
  std::thread _thread;
};

constexpr char natsGreeting[] =
    "INFO {\"server_id\":\"X\",\"version\":\"2.9.10\",\"headers\":true,\"max_payload\":1000}\r\n";
constexpr char natsGreetingForTls[] =
    "INFO {\"server_id\":\"X\",\"version\":\"2.9.10\",\"headers\":true,\"max_payload\":1000,"
    "\"tls_required\":true}\r\n";

// On the port of another one, as the nodes of a cluster are on one.
std::unique_ptr<NatsServer> serverBeside(int port, const std::string& host) {
  const std::string listen = "listen: \"" + host + ":" + std::to_string(port) + "\"";
  return std::make_unique<NatsServer>(NatsServer::Settings{.hasJetStream = false, .more = listen});
}

// Nothing when something sent there comes back.
std::string faultOf(ServerConnection& connection) try {
  connection.send(connection.replySubject("test"), "", {}, "anything");
  return connection.next(linkPatience).message ? "" : "nothing comes";
} catch (const LinkError& error) {
  return error.what();
}

}  // namespace

TEST(ConnectingTest, NobodyListens) {
  const Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = loopbackAddress(0);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(bind(socket.get(), generic, length), 0);  // so the port is no other program's
  ASSERT_EQ(getsockname(socket.get(), generic, &length), 0);
  expectFault(urlOf(ntohs(address.sin_port)), nobody);
}

TEST(ConnectingTest, NoSuchHost) {
  expectFault("nats://no-such-host.invalid:4222", nobody);
}

TEST(ConnectingTest, AServerThatSaysNothing) {
  const StreamListener listener;  // as a web server does, which waits for a request
  expectFault(urlOf(listener.port()), silence);
}

TEST(ConnectingTest, AServerThatStandsStill) {
  const NatsServer server;
  connectTo(server.url());
  server.stop();
  expectFault(server.url(), silence);
  server.resume();
  connectTo(server.url());
}

TEST(ConnectingTest, AServerThatFallsSilentAfterItsGreeting) {
  const Greeter greeter(natsGreeting, Greeter::Then::wait);
  expectFault(urlOf(greeter.port()), silence);
}

TEST(ConnectingTest, WhileAnotherThreadTriesANodeThatFallsSilent) {
  const Greeter silent(natsGreeting, Greeter::Then::wait);
  const std::string host = "127.0.0.2";
  const auto good = serverBeside(silent.port(), host);
  std::atomic<int> failures = 0;
  const std::jthread other([&](const std::stop_token& isOver) {
    while (!isOver.stop_requested()) try {
        const ServerConnection connection(settingsFor(), urlOf(silent.port()));
      } catch (const LinkError&) {
        ++failures;
      }
  });
  std::vector<std::unique_ptr<ServerConnection>> connections;
  const auto isConnected = [&] {
    try {
      connections.push_back(
          std::make_unique<ServerConnection>(settingsFor(), urlOf(silent.port(), host)));
      return true;
    } catch (const LinkError&) {
      return false;
    }
  };
  for (int count = 0; count < 2; ++count) {
    const int before = silent.greeted();
    ASSERT_TRUE(waitUntil([&] { return silent.greeted() > before; }, linkPatience));
    ASSERT_TRUE(waitUntil(isConnected, linkPatience));
  }
  const int before = failures;
  ASSERT_TRUE(waitUntil([&] { return failures >= before + 2; }, linkPatience));
  for (const auto& each : connections) EXPECT_EQ(faultOf(*each), "");
}

// That greets and ends the connection, and names another one.
TEST(ConnectingTest, AServerOfWhichTheLibraryWouldGoToAnother) {
  const StreamListener other;
  std::string greeting = natsGreeting;
  greeting.insert(greeting.find('}'),
                  R"(,"connect_urls":["127.0.0.1:)" + std::to_string(other.port()) + R"("])");
  const Greeter greeter(greeting, Greeter::Then::close);
  expectFault(urlOf(greeter.port()),
              "it ended the connection after its greeting, as one with too many of them, or one "
              "that wants a client certificate");
  pollfd asked{other.descriptor(), POLLIN, 0};
  EXPECT_EQ(poll(&asked, 1, 0), 0) << "somebody has come";
}

TEST(ConnectingTest, AServerThatFallsSilentBeforeTls) {
  const Greeter greeter(natsGreetingForTls, Greeter::Then::wait);
  expectFault(urlOf(greeter.port()), silence);
}

TEST(ConnectingTest, AServerThatEndsTheConnectionAfterItsGreeting) {
  const Greeter greeter(natsGreeting, Greeter::Then::close);
  expectFault(urlOf(greeter.port()),
              "it ended the connection after its greeting, as one with too many of them, or one "
              "that wants a client certificate");
}

TEST(ConnectingTest, AServerThatEndsTheConnectionAtOnce) {
  const Greeter greeter("", Greeter::Then::close);
  expectFault(urlOf(greeter.port()),
              "it closed the connection without a greeting: it ends, or is no NATS server");
}

TEST(ConnectingTest, AServerOfAnotherKind) {
  const Greeter greeter("220 mail.example ESMTP\r\n", Greeter::Then::wait);
  expectFault(urlOf(greeter.port()),
              "it is no NATS server (Unexpected protocol: got '220' instead of 'INFO')");
}

TEST(ConnectingTest, NoPassword) {
  const NatsServer server({.more = "authorization { user: link, password: secret }"});
  expectFault(server.url(), "it wants a user and a password");
  connectTo(server.url(), settingsFor(LinkUser{"link", "secret"}));
}

TEST(ConnectingTest, TheWrongPassword) {
  const NatsServer server({.more = "authorization { user: link, password: secret }"});
  expectFault(server.url(), "it refuses the user 'link' or the password",
              settingsFor(LinkUser{"link", "public"}));
  expectFault(server.url(), "it refuses the user 'other' or the password",
              settingsFor(LinkUser{"other", "secret"}));
}

TEST(ConnectingTest, TlsIsNotOffered) {
  const NatsServer server;
  expectFault(server.tlsUrl(), "it offers no TLS");
}

TEST(ConnectingTest, OverTls) {
  const Certificates certificates;
  const NatsServer server({.more = certificates.here()});
  const auto stream = connectTo(server.tlsUrl(), settingsFor({}, certificates.authority()));
  EXPECT_EQ(answerTo(*stream, rowOf(1)).kind, RowStream::Answer::Kind::taken);
}

TEST(ConnectingTest, AnUnknownAuthority) {
  const Certificates certificates;
  const NatsServer server({.more = certificates.here()});
  const std::string unknown =
      "its certificate is not trusted (SSL handshake error: 20:unable to get local issuer "
      "certificate:depth=0:cert=/CN=here:issuer=/CN=authority)";
  expectFault(server.tlsUrl(), unknown, settingsFor({}, certificates.otherAuthority()));
  expectFault(server.tlsUrl(), unknown);
  expectFault(server.url(), unknown);  // it wants TLS, so TLS it is
}

TEST(ConnectingTest, ACertificateForAnotherHost) {
  const Certificates certificates;
  const NatsServer server({.more = certificates.elsewhere()});
  expectFault(server.tlsUrl(),
              "its certificate is for another host (SSL handshake error: 64:IP address "
              "mismatch:depth=0:cert=/CN=elsewhere:issuer=/CN=authority)",
              settingsFor({}, certificates.authority()));
}

TEST(ConnectingTest, NoFileOfCertificates) {
  const TemporaryFile text("no certificate");
  for (const std::string& path : {std::string("/no/such/authority.pem"), text.path()})
    expectFault("tls://127.0.0.1:1", "no CA certificates can be read from '" + path + "'",
                settingsFor({}, path));
}

}  // namespace dch::testkit
