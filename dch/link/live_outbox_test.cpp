#include "dch/link/live_outbox.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace dch {
namespace {

OutgoingLiveRow rowOf(std::size_t number, std::size_t bytes = 100) {
  return {"subject", "header", std::string(bytes, 'x'), number};
}

TEST(LiveOutbox, GivesWhatWasPutInItsOrder) {
  LiveOutbox outbox;
  outbox.open();
  for (std::size_t row = 1; row <= 3; ++row) EXPECT_TRUE(outbox.put(rowOf(row)));
  for (std::size_t row = 1; row <= 3; ++row) {
    ASSERT_NE(outbox.first(), nullptr);
    EXPECT_EQ(outbox.first()->group, row);
    outbox.take(row != 2);
  }
  EXPECT_EQ(outbox.first(), nullptr);
  EXPECT_EQ(outbox.figures().sent, 2u);
  EXPECT_EQ(outbox.figures().lost, 1u);
}

TEST(LiveOutbox, HasRoomForSoManyRowsAndBytes) {
  LiveOutbox outbox;
  outbox.open();
  for (std::size_t row = 0; row < LiveOutbox::mostRows; ++row) ASSERT_TRUE(outbox.put(rowOf(row)));
  EXPECT_FALSE(outbox.put(rowOf(0)));
  outbox.take(true);
  EXPECT_TRUE(outbox.put(rowOf(0)));
  LiveOutbox large;
  large.open();
  const std::size_t quarter = LiveOutbox::mostBytes / 4;
  for (int row = 0; row < 3; ++row) EXPECT_TRUE(large.put(rowOf(0, quarter)));
  EXPECT_FALSE(large.put(rowOf(0, quarter)));
  EXPECT_TRUE(large.put(rowOf(0, quarter / 2)));
  large.take(true);
  EXPECT_TRUE(large.put(rowOf(0, quarter)));
}

TEST(LiveOutbox, ThrowsAwayWhatComesWhileItIsClosed) {
  LiveOutbox outbox;
  EXPECT_TRUE(outbox.put(rowOf(1)));
  EXPECT_EQ(outbox.first(), nullptr);
  outbox.open();
  EXPECT_TRUE(outbox.put(rowOf(2)));
  EXPECT_TRUE(outbox.put(rowOf(3)));
  outbox.close();
  EXPECT_TRUE(outbox.put(rowOf(4)));
  EXPECT_EQ(outbox.first(), nullptr);
  EXPECT_EQ(outbox.figures().lost, 2u) << "what was put, and not what was thrown away at once";
  outbox.open();
  EXPECT_EQ(outbox.first(), nullptr);
}

TEST(LiveOutbox, PassesAllThatWasPutBetweenTwoThreads) {
  constexpr std::size_t count = 50'000;
  LiveOutbox outbox;
  outbox.open();
  std::thread putter([&] {
    for (std::size_t row = 0; row < count; ++row)
      while (!outbox.put(rowOf(row, row % 5'000))) std::this_thread::yield();
  });
  for (std::size_t row = 0; row < count; ++row) {
    while (outbox.first() == nullptr) std::this_thread::yield();
    EXPECT_EQ(outbox.first()->group, row);
    EXPECT_EQ(outbox.first()->message.size(), row % 5'000);
    outbox.take(true);
  }
  putter.join();
  EXPECT_EQ(outbox.figures().sent, count);
}

}  // namespace
}  // namespace dch
