#include "dch/testkit/bystander.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <iostream>
#include <thread>
#include <vector>

#include "dch/testkit/messages.h"
#include "tests/support/quickest.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace dch::testkit {

namespace {

constexpr char application[] = "BYSTANDER";

// As many answers at least, and as many calls of the other one.
constexpr std::size_t leastAnswers = 300;
constexpr std::size_t leastCalls = 20;

// A busy machine that is stopped now and then makes few answers take so long.
constexpr double longSeconds = 0.5;

// Who is held up each time the other one does something asks less than usual, and may be held up
// each time he asks himself: so the fewer of both count.
std::size_t mostLongOnes(std::size_t calls, std::size_t answers) {
  return std::max(leastCalls, std::min(calls, answers)) / 4;
}

std::string milliseconds(double seconds) {
  return std::to_string(seconds * 1'000) + " ms";
}

}  // namespace

Bystander::Bystander(int port) : _datagrams(port), _connection(port) {
  const std::string text = "appl:" + std::string(application) + ",BYS;group:load;attr:load1,D,16;";
  EXPECT_EQ(statusOf(_datagrams.ask(registerMessage(text, application, "BYS"))), DCH_STATUS_OK);
  const auto online = onlineAnswerOf(_connection.ask(onlineMessage(application, "load", "host1")));
  EXPECT_TRUE(online && online->status == DCH_STATUS_OK);
  _row = dataMessage(online ? online->handle : 0, {{"load1", 'D', "1"}});
}

bool Bystander::isServed(std::size_t turn, Wants wants) const {
  const bool isByDatagram = turn % 2 == 0;
  const auto ask = [&](const std::string& message) {
    return isByDatagram ? _datagrams.ask(message) : _connection.ask(message);
  };
  if (wants == Wants::everything && turn % 4 < 2) return statusOf(ask(_row)) == DCH_STATUS_OK;
  return !textOf(ask(catalogueMessage(DCH_REQUEST_ATTRIBUTES, application))).value_or("").empty();
}

void Bystander::expectIsServed(const std::function<void()>& hostile, Wants wants,
                               std::chrono::seconds atLeast) const {
  const auto end = std::chrono::steady_clock::now() + atLeast;
  std::atomic<std::size_t> calls{hostile ? 0 : leastCalls};
  std::vector<double> times;
  std::size_t longOnes = 0;
  {
    const std::jthread other([&](const std::stop_token& isOver) {
      try {
        for (; hostile && !isOver.stop_requested(); ++calls) hostile();
      } catch (const std::exception& error) {
        ADD_FAILURE() << error.what();
        calls = leastCalls;
      }
    });
    while ((times.size() < leastAnswers || calls < leastCalls ||
            std::chrono::steady_clock::now() < end) &&
           longOnes <= mostLongOnes(calls, times.size())) {
      bool hasAnswer = false;
      times.push_back(secondsOf([&] { hasAnswer = isServed(times.size(), wants); }));
      ASSERT_TRUE(hasAnswer) << "question " << times.size();
      if (times.back() > longSeconds) ++longOnes;
    }
  }
  std::sort(times.begin(), times.end());
  const double median = times[times.size() / 2], most = times[times.size() * 9 / 10];
  std::cout << times.size() << " answers to another client: half of them in "
            << milliseconds(median) << ", nine tenths in " << milliseconds(most)
            << ", all of them in " << milliseconds(times.back()) << '\n';
  ::testing::Test::RecordProperty("median", milliseconds(median));
  ::testing::Test::RecordProperty("nine_tenths", milliseconds(most));
  ::testing::Test::RecordProperty("slowest", milliseconds(times.back()));
  EXPECT_LE(longOnes, mostLongOnes(calls, times.size())) << "took longer than half a second";
}

}  // namespace dch::testkit
