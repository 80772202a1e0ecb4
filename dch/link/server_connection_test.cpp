#include "dch/link/server_connection.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_server.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

constexpr char subject[] = "much";

// Sends without an end, on a thread of its own: a message is on its way at any moment.
class MuchSent {
 public:
  explicit MuchSent(const std::string& url) : _thread([this, url] { send(url); }) {}
  ~MuchSent() {
    _isEnding = true;
    _thread.join();
  }

 private:
  void send(const std::string& url) {
    const std::string body(16'384, 'x');  // of which a copy is made
    while (!_isEnding) {
      try {
        ServerConnection connection(settingsFor(), url);
        while (!_isEnding) connection.send(subject, {}, {}, body);
      } catch (const LinkError&) {  // the machine stood still
      }
    }
  }

  std::atomic<bool> _isEnding = false;
  std::thread _thread;
};

class ServerConnectionTest : public ::testing::Test {
 protected:
  std::unique_ptr<ServerConnection> connect() const {
    std::unique_ptr<ServerConnection> connection;
    const auto connects = [&] {
      try {
        connection = std::make_unique<ServerConnection>(settingsFor(), _nats.url());
        return true;
      } catch (const LinkError&) {
        return false;
      }
    };
    if (!waitUntil(connects, linkPatience)) throw std::runtime_error("cannot connect");
    return connection;
  }

  const NatsServer _nats;
};

// The library's reading thread may be at a message for it just then.
TEST_F(ServerConnectionTest, SubscriptionsEndWhileMessagesCome) {
  const MuchSent much(_nats.url());
  int ended = 0;
  while (ended < 50) {
    const auto connection = connect();
    try {
      for (int count = 0; count < 25; ++count) {
        const auto subscription = connection->share(subject);
        if (connection->received(subscription.get(), linkPatience) != nullptr) ++ended;
      }
    } catch (const LinkError&) {
    }
  }
}

TEST_F(ServerConnectionTest, EndsWhileMessagesCome) {
  const MuchSent much(_nats.url());
  int ended = 0;
  while (ended < 50) {
    const auto connection = connect();
    try {
      const auto subscription = connection->share(subject);
      if (connection->received(subscription.get(), linkPatience) != nullptr) ++ended;
    } catch (const LinkError&) {
    }
  }
}

}  // namespace
}  // namespace dch::testkit
