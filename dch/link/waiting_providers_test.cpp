#include "dch/link/waiting_providers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace dch {
namespace {

class WaitingProvidersTest : public testing::Test {
 protected:
  WaitingProvidersTest() {
    _waiting.setWake([this] { ++_wakes; });
  }

  static ProviderNews news(const std::string& site, const std::string& application,
                           std::size_t facts = 1) {
    ProviderNews made{.site = site, .facts = {}};
    for (std::size_t index = 0; index < facts; ++index)
      made.facts.push_back({.kind = ProviderFact::Kind::unregistered, .application = application});
    return made;
  }
  bool put(const std::string& site, const std::string& application, std::size_t facts = 1) {
    return _waiting.put(news(site, application, facts));
  }
  // "SITE APPLICATION" of each that waits.
  std::vector<std::string> take() {
    std::vector<std::string> taken;
    while (const auto each = _waiting.take())
      taken.push_back(each->site + ' ' + each->facts.front().application);
    return taken;
  }

  static constexpr std::size_t most = 400 * sizeof(ProviderFact);
  WaitingProviders _waiting{most};
  std::atomic<int> _wakes = 0;
};

TEST_F(WaitingProvidersTest, KeepsThemInTheirOrder) {
  ProviderNews whole = news("west", "A");
  whole.kind = ProviderNews::Kind::first;
  whole.isAll = true;
  EXPECT_TRUE(_waiting.put(std::move(whole)));
  EXPECT_TRUE(put("east", "B"));
  EXPECT_TRUE(put("west", "C"));
  const auto taken = _waiting.take();
  ASSERT_TRUE(taken);
  EXPECT_EQ(taken->site, "west");
  EXPECT_EQ(taken->kind, ProviderNews::Kind::first);
  EXPECT_TRUE(taken->isAll);
  EXPECT_EQ(taken->facts.front().application, "A");
  EXPECT_EQ(take(), (std::vector<std::string>{"east B", "west C"}));
}

TEST_F(WaitingProvidersTest, WakesWhenThereIsSomethingAfterThereWasNothing) {
  put("west", "A");
  put("west", "B");
  EXPECT_EQ(_wakes, 1);
  take();
  put("west", "C");
  EXPECT_EQ(_wakes, 2);
  take();
  _waiting.setWake(nullptr);
  EXPECT_TRUE(put("west", "D"));
  EXPECT_EQ(_wakes, 2);
}

TEST_F(WaitingProvidersTest, ASiteHasAQuarterOfTheRoom) {
  EXPECT_FALSE(put("west", "A", 100));
  EXPECT_TRUE(put("west", "B", 90));
  EXPECT_FALSE(put("west", "C", 10));
  EXPECT_TRUE(put("east", "D", 90));
  EXPECT_EQ(take(), (std::vector<std::string>{"west B", "east D"}));
  EXPECT_TRUE(put("west", "E", 90)) << "what was taken leaves its room";
}

TEST_F(WaitingProvidersTest, AllTogetherHaveTheRoom) {
  for (const char* site : {"a", "b", "c", "d"}) EXPECT_TRUE(put(site, "A", 95));
  EXPECT_FALSE(put("e", "A", 20));
  _waiting.take();
  EXPECT_TRUE(put("e", "A", 20));
}

TEST_F(WaitingProvidersTest, AsksForNoMoreThanHalfOfTheRoom) {
  EXPECT_TRUE(_waiting.hasRoom("west"));
  put("west", "A", 60);
  EXPECT_FALSE(_waiting.hasRoom("west"));
  EXPECT_TRUE(_waiting.hasRoom("east"));
  for (const char* site : {"a", "b", "c"}) put(site, "A", 60);
  EXPECT_FALSE(_waiting.hasRoom("east"));
  take();
  EXPECT_TRUE(_waiting.hasRoom("west"));
  EXPECT_TRUE(_waiting.hasRoom("east"));
}

TEST_F(WaitingProvidersTest, CountsLongNamesAndRegistrations) {
  EXPECT_TRUE(put("west", "short", 50));
  take();
  EXPECT_FALSE(put("west", std::string(8 * sizeof(ProviderFact), 'x'), 50));
  ProviderNews registered = news("west", "A");
  auto registration = std::make_shared<suite::Registration>();
  registration->text = std::string(most / 8, 'x');
  registered.facts.front().kind = ProviderFact::Kind::registered;
  registered.facts.front().registration = registration;
  EXPECT_FALSE(_waiting.put(std::move(registered)));
}

TEST_F(WaitingProvidersTest, MayBeFilledAndTakenOnTwoThreads) {
  constexpr int count = 5'000;
  std::atomic<bool> isFilled = false;
  std::thread filler([&] {
    for (int each = 0; each < count; ++each)
      while (!put("west", std::to_string(each))) std::this_thread::yield();
    isFilled = true;
  });
  int next = 0;
  const auto takeAll = [&] {
    while (const auto taken = _waiting.take()) {
      EXPECT_EQ(taken->facts.front().application, std::to_string(next));
      ++next;
    }
  };
  while (!isFilled) takeAll();
  filler.join();
  takeAll();
  EXPECT_EQ(next, count);
}

}  // namespace
}  // namespace dch
