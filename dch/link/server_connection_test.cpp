#include "dch/link/server_connection.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "dch/testkit/flood.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_server.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

constexpr char subject[] = "much";

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
  const Flood<ServerConnection> much(_nats.url(), subject);
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
  const Flood<ServerConnection> much(_nats.url(), subject);
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
