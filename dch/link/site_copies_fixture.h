// site_copies_fixture.h: for tests of SiteCopies, some sites that say what a test has them say.
#ifndef DCH_LINK_SITE_COPIES_FIXTURE_H
#define DCH_LINK_SITE_COPIES_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "dch/link/provider_line.h"
#include "dch/link/site_copies.h"

namespace dch {

// Notes what it is given as one text: "SITE KIND LINE,LINE end;".
class NotingSink final : public ProviderNewsSink {
 public:
  bool hasRoom(std::string_view) const noexcept override { return isOpen; }
  bool put(ProviderNews&& news) noexcept override {
    if (isFull) return false;
    constexpr const char* kinds[] = {" first", " more", " silent"};
    _noted += news.site + kinds[static_cast<std::size_t>(news.kind)];
    for (const ProviderFact& fact : news.facts)
      _noted += (&fact == &news.facts.front() ? ' ' : ',') + providerLine(fact);
    _noted += news.isAll ? " end;" : ";";
    return true;
  }
  // All since the last call.
  std::string take() { return std::exchange(_noted, {}); }

  bool isOpen = true;
  bool isFull = false;

 private:
  std::string _noted;
};

class SiteCopiesTest : public testing::Test {
 protected:
  using Seconds = std::chrono::duration<double>;

  // A run for each letter.
  static Epoch runOf(char letter) {
    Epoch run;
    run.bytes.fill(static_cast<std::uint8_t>(letter));
    return run;
  }
  void pass(double seconds) {
    _now += std::chrono::duration_cast<SiteCopies::TimePoint::duration>(Seconds(seconds));
  }

  void hear(const std::string& site, std::uint64_t from, std::uint64_t to,
            const std::string& text = {}, char run = 'a') {
    _copies.heard({site, runOf(run), from, to, text}, _now);
  }
  // "SITE KEY" of the next question, which is remembered; "none".
  std::string next() {
    const auto question = _copies.nextQuestion(_now);
    if (!question) return "none";
    _asked = question->number;
    return question->site + ' ' + question->key;
  }
  void answer(std::uint64_t question, std::uint64_t revision, const std::string& text,
              bool isAll = true, char run = 'a') {
    _copies.answered(question, {runOf(run), revision, isAll}, text, _now);
  }
  // The answer to the question that was asked last.
  void answer(std::uint64_t revision, const std::string& text, bool isAll = true, char run = 'a') {
    answer(_asked, revision, text, isAll, run);
  }
  // Knows all of the site from here on.
  void copy(const std::string& site, std::uint64_t revision, char run = 'a') {
    hear(site, revision, revision, {}, run);
    ASSERT_EQ(next(), site + ' ');
    answer(revision, "S A g s\n", true, run);
    ASSERT_EQ(_sink.take(), site + " first S A g s end;");
  }
  // After how many seconds, roughly, the next question is asked, which is remembered.
  int secondsToNext(int most = 200) {
    int seconds = 0;
    for (; next() == "none" && seconds < most; ++seconds) pass(1);
    return seconds;
  }

  SiteCopies::TimePoint _now{std::chrono::hours(1)};
  NotingSink _sink;
  SiteCopies _copies{"own", _sink};
  std::uint64_t _asked = 0;
};

}  // namespace dch

#endif  // DCH_LINK_SITE_COPIES_FIXTURE_H
