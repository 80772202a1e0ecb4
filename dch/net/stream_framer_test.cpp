#include "dch/net/stream_framer.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "dch/testkit/messages.h"

namespace dch {
namespace {

using Next = StreamFramer::Next;

constexpr std::size_t longest = 100;

// A message of `size` bytes, of which the length word is the first four.
std::string message(std::uint32_t size, char filling = 'x') {
  return testkit::withLengthWord(std::string(size, filling), size);
}

// What comes of the bytes up to where more are needed; a length that no message has is "broken".
std::vector<std::string> takeAll(StreamFramer* framer) {
  std::vector<std::string> all;
  std::string_view next;
  Next result;
  while ((result = framer->next(&next)) == Next::message) all.emplace_back(next);
  if (result == Next::broken) all.emplace_back("broken");
  return all;
}

TEST(StreamFramerTest, MakesTheSameMessagesOfAnyPieces) {
  const std::vector<std::string> messages{message(4), message(50, 'a'), message(5),
                                          message(longest, 'b'), message(4)};
  std::string bytes;
  for (const std::string& each : messages) bytes += each;
  std::mt19937 random(20260131);
  for (int round = 0; round < 1000; ++round) {
    StreamFramer framer(longest);
    std::vector<std::string> made;
    for (std::size_t at = 0; at < bytes.size();) {
      const std::size_t piece = random() % 60;
      framer.add(std::string_view(bytes).substr(at, piece));
      at += piece;
      for (std::string& each : takeAll(&framer)) made.push_back(std::move(each));
    }
    ASSERT_EQ(made, messages);
    ASSERT_FALSE(framer.isInMessage());
  }
}

TEST(StreamFramerTest, KnowsWhetherItIsInAMessage) {
  StreamFramer framer(longest);
  EXPECT_FALSE(framer.isInMessage());
  framer.add(message(10).substr(0, 3));
  EXPECT_EQ(takeAll(&framer), std::vector<std::string>{});
  EXPECT_TRUE(framer.isInMessage());
  framer.add(message(10).substr(3));
  EXPECT_EQ(takeAll(&framer), std::vector<std::string>{message(10)});
  EXPECT_FALSE(framer.isInMessage());
}

TEST(StreamFramerTest, StopsAtALengthThatNoMessageHas) {
  for (const std::uint32_t length :
       {0u, 1u, 3u, static_cast<std::uint32_t>(longest) + 1, 0x7fffffffu, 0xffffffffu}) {
    StreamFramer framer(longest);
    framer.add(message(8) + testkit::withLengthWord("01234567", length));
    EXPECT_EQ(takeAll(&framer), (std::vector<std::string>{message(8), "broken"})) << length;
  }
}

TEST(StreamFramerTest, BeginsAnewWhenItIsCleared) {
  StreamFramer framer(longest);
  framer.add(testkit::withLengthWord("01234567", 2));
  EXPECT_EQ(takeAll(&framer), std::vector<std::string>{"broken"});
  framer.clear();
  EXPECT_FALSE(framer.isInMessage());
  framer.add(message(6));
  EXPECT_EQ(takeAll(&framer), std::vector<std::string>{message(6)});
}

}  // namespace
}  // namespace dch
