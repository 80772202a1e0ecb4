// network_test.h: the library, in this process, and zordchd, in one of its own, with a faulty
// network between them.
#ifndef TESTS_NETWORK_NETWORK_TEST_H
#define TESTS_NETWORK_NETWORK_TEST_H

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <ostream>
#include <string>

#include "dch/testkit/server_process.h"
#include "tests/network/faulty_network.h"
#include "zordchcl/zordchcl.h"

namespace network {

// What a request of the library comes to.
struct Outcome {
  int result;
  ZORA_Long status;
  bool operator==(const Outcome&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
  return stream << "result " << outcome.result << ", status " << outcome.status;
}

inline constexpr Outcome good{0, 0};
inline constexpr Outcome noAnswer{1, 5};
inline constexpr Outcome fieldMissing{1, 2};   // of registration and online
inline constexpr Outcome statusMissing{1, 1};  // of the other requests of providers
inline constexpr Outcome answered(ZORA_Long status) {
  return {0, status};
}

inline constexpr char registrationText[] =
    "appl:NET,NET; help:Of a test; group:rows; attr:text,D,16;";
// Short, for it is waited out whenever an answer is lost; but an answer that is on its way comes
// sooner, however busy the machine is.
inline constexpr int timeoutSeconds = 3;

inline constexpr ZORA_Long noHandle = 0;
inline constexpr ZORA_Long unknownHandle = 4711;

inline Outcome registerNet() {
  ZORA_Long status = -1;
  const int result = dp_register(&status, registrationText);
  return {result, status};
}

inline Outcome goOnline(ZORA_Long* handle, const char* source = "host1") {
  ZORA_Long status = -1;
  const int result = dp_online(&status, handle, "NET", "rows", source);
  return {result, status};
}

inline Outcome sendRow(ZORA_Long handle, const std::string& text) {
  ZORA_Long status = -1;
  ZORA_Long size = 0;
  char* row = nullptr;
  dp_formatData(&status, &row, &size, "text", text.data(), static_cast<ZORA_Long>(text.size()),
                'D');
  const int result = dp_data(&status, handle, 0, &row);
  return {result, status};
}

inline Outcome goOffline(ZORA_Long handle) {
  ZORA_Long status = -1;
  const int result = dp_offline(&status, handle);
  return {result, status};
}

// Everything goes through the network, which has no faults to begin with. The library reads its
// settings at its first use: until then a test may change them.
class NetworkTest : public ::testing::Test {
 protected:
  explicit NetworkTest(const dch::testkit::ServerProcess::Arguments& more = {"--verbose"})
      : _server(more), _network(_server.port(), noFaults()) {
    setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
    setenv("ZORA_DCH_PORT", std::to_string(_network.port()).c_str(), 1);
    setTimeout(timeoutSeconds);
  }
  // A server that a sanitizer finds fault with does not end with 0.
  ~NetworkTest() override { EXPECT_EQ(_server.stop(SIGTERM), 0) << _server.standardError(); }

  static void setTimeout(int seconds) {
    setenv("ZORA_DCH_TIMEOUT", std::to_string(seconds).c_str(), 1);
  }
  static void setPoolSize(int sockets) {
    setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", std::to_string(sockets).c_str(), 1);
  }

  // The next answer fares so; those after it arrive.
  void nextAnswer(Arrivals arrivals) { nextOf(Direction::toClient, std::move(arrivals)); }
  void nextRequest(Arrivals arrivals) { nextOf(Direction::toDch, std::move(arrivals)); }

  dch::testkit::ServerProcess _server;
  FaultyNetwork _network;

 private:
  void nextOf(Direction direction, Arrivals arrivals) {
    _network.setFaults(
        [direction, arrivals, isOver = false](const Passing& passing) mutable -> Arrivals {
          if (isOver || passing.direction != direction) return once;
          isOver = true;
          return arrivals;
        });
  }
};

}  // namespace network

#endif  // TESTS_NETWORK_NETWORK_TEST_H
