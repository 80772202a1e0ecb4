// site_watch_test.h: a site that watches others, at times that a test lets pass.
#ifndef DCH_TESTKIT_SITE_WATCH_TEST_H
#define DCH_TESTKIT_SITE_WATCH_TEST_H

#include <gmock/gmock.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "dch/link/site_watch.h"

namespace dch::testkit {

// Site "west".
class SiteWatchTest : public ::testing::Test {
 protected:
  using Heard = SiteWatch::Heard;
  using State = AliveMessage::State;
  using TimePoint = SiteWatch::TimePoint;
  using milliseconds = std::chrono::milliseconds;
  using seconds = std::chrono::seconds;

  static constexpr std::uint8_t ownNumber = 100;
  static constexpr std::uint8_t lowRuns[] = {1, 2};

  SiteWatchTest() {
    watch.connected(now);
    watch.fallenSilent(now, true);
  }

  // Higher numbers are higher runs.
  static Epoch runOf(std::uint8_t number) {
    Epoch run;
    run.bytes.front() = number;
    return run;
  }
  AliveMessage message(std::uint8_t run, State state = State::here) {
    return {.run = runOf(run),
            .count = ++count,
            .period = seconds(1),
            .state = state,
            .newest = 42,
            .published = 40,
            .version = "4.10.0"};
  }
  AliveMessage rival(std::uint8_t run, State state) {
    AliveMessage said = message(run, state);
    said.hears = runOf(ownNumber);
    return said;
  }
  Heard hear(const std::string& site, const AliveMessage& said) {
    return watch.heard(site, said, now);
  }
  // Looks each second, as is to be done.
  std::vector<std::string> pass(seconds time, bool isConnected = true) {
    std::vector<std::string> all;
    for (seconds passed{0}; passed < time; ++passed) {
      now += seconds(1);
      for (std::string& each : watch.fallenSilent(now, isConnected)) all.push_back(std::move(each));
    }
    return all;
  }
  // This site is a newcomer no more.
  void settle() {
    watch.speak(now);
    pass(seconds(15));
    watch.speak(now);
    ASSERT_EQ(watch.speak(now).state, State::here);
    while (watch.mustSpeakNow(now)) {
    }
  }

  std::uint64_t count = 0;
  TimePoint now{seconds(1'000)};
  SiteWatch watch{"west", runOf(ownNumber)};
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_SITE_WATCH_TEST_H
