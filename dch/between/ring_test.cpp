#include "dch/between/ring.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>

#include "dch/between/doorbell.h"

namespace dch {
namespace {

struct Slot {
  std::uint64_t number = 0;
  std::string text;
};

bool putNumber(Ring<Slot>* ring, std::uint64_t number) {
  Slot* const slot = ring->room();
  if (slot == nullptr) return false;
  slot->number = number;
  slot->text.assign("the text of a slot that has memory of its own: ")
      .append(std::to_string(number));
  ring->put();
  return true;
}

std::uint64_t takeNumber(Ring<Slot>* ring) {
  const Slot* const slot = ring->first();
  if (slot == nullptr) return 0;
  const std::uint64_t number = slot->number;
  EXPECT_TRUE(slot->text.ends_with(": " + std::to_string(number)));
  ring->take();
  return number;
}

TEST(RingTest, GivesWhatWasPutInItsOrder) {
  Ring<Slot> ring(3);
  EXPECT_EQ(ring.first(), nullptr);
  for (std::uint64_t round = 0; round < 10; ++round) {
    EXPECT_TRUE(putNumber(&ring, 2 * round + 1));
    EXPECT_TRUE(putNumber(&ring, 2 * round + 2));
    EXPECT_EQ(takeNumber(&ring), 2 * round + 1);
    EXPECT_EQ(takeNumber(&ring), 2 * round + 2);
    EXPECT_EQ(takeNumber(&ring), 0u);
  }
}

TEST(RingTest, TakesNoMoreThanItHasSlots) {
  Ring<Slot> ring(3);
  for (std::uint64_t number = 1; number <= ring.capacity(); ++number)
    EXPECT_TRUE(putNumber(&ring, number));
  EXPECT_FALSE(putNumber(&ring, 4));
  EXPECT_EQ(takeNumber(&ring), 1u);
  EXPECT_TRUE(putNumber(&ring, 4));
  EXPECT_FALSE(putNumber(&ring, 5));
  for (const std::uint64_t number : {2, 3, 4}) EXPECT_EQ(takeNumber(&ring), number);
}

TEST(RingTest, ASlotKeepsItsMemory) {
  Ring<Slot> ring(2);
  putNumber(&ring, 1);
  const char* const memory = ring.first()->text.data();
  takeNumber(&ring);
  putNumber(&ring, 2);
  takeNumber(&ring);
  putNumber(&ring, 3);
  EXPECT_EQ(ring.first()->text.data(), memory);
}

TEST(RingTest, LosesNothingBetweenTwoThreads) {
  constexpr std::uint64_t last = 200'000;
  Ring<Slot> ring(64);
  std::thread putting([&ring] {
    for (std::uint64_t number = 1; number <= last; ++number)
      while (!putNumber(&ring, number)) std::this_thread::yield();
  });
  std::uint64_t expected = 1;
  while (expected <= last) {
    const std::uint64_t number = takeNumber(&ring);
    if (number == 0) {
      std::this_thread::yield();
    } else if (number != expected) {
      ADD_FAILURE() << "after " << expected - 1 << " comes " << number;
      break;
    } else {
      ++expected;
    }
  }
  if (expected <= last)
    while (expected <= last)  // so that the other one comes to its end
      if (takeNumber(&ring) == last) expected = last + 1;
  putting.join();
}

TEST(DoorbellTest, WakesOnceWhoAwaitsIt) {
  Doorbell bell;
  int woken = 0;
  bell.setWake([&woken] { ++woken; });
  bell.ring();
  EXPECT_EQ(woken, 0) << "nobody sleeps";
  bell.await();
  bell.ring();
  bell.ring();
  EXPECT_EQ(woken, 1);
  bell.await();
  bell.setWake(nullptr);
  bell.ring();
  EXPECT_EQ(woken, 1);
}

// The taker sleeps until it is woken: would a ring get lost, it slept for ever.
TEST(DoorbellTest, WakesForEverythingThatIsPut) {
  constexpr std::uint64_t last = 50'000;
  Ring<Slot> ring(64);
  Doorbell bell;
  std::atomic<bool> isWoken{false};
  bell.setWake([&isWoken] {
    isWoken = true;
    isWoken.notify_one();
  });
  std::thread putting([&] {
    for (std::uint64_t number = 1; number <= last; ++number) {
      while (!putNumber(&ring, number)) std::this_thread::yield();
      bell.ring();
    }
  });
  std::uint64_t taken = 0;
  const auto takeAll = [&] {
    while (takeNumber(&ring) != 0) ++taken;
  };
  while (taken < last) {
    takeAll();
    bell.await();
    takeAll();
    if (taken == last) break;
    isWoken.wait(false);
    isWoken = false;
  }
  putting.join();
  EXPECT_EQ(taken, last);
}

}  // namespace
}  // namespace dch
