#include "dch/core/postponed_requests.h"

#include <gtest/gtest.h>

#include <vector>

namespace dch {
namespace {

using Texts = std::vector<std::string>;

class PostponedRequestsTest : public ::testing::Test {
 protected:
  bool add(std::string_view application, std::string_view text) {
    return _requests.add(application, {text, {}, 1});
  }

  // What is tried again when the first `count` of them need not wait any more.
  Texts resume(std::string_view application, std::size_t count) {
    Texts tried;
    _requests.resume(application, [&](const Message& message) {
      tried.emplace_back(message.bytes);
      return tried.size() <= count;
    });
    return tried;
  }

  PostponedRequests _requests{4};
};

TEST_F(PostponedRequestsTest, KeepTheOrderOfTheirApplicationAndWaitForNoOther) {
  for (const char* text : {"1", "2"}) add("A", text);
  add("B", "3");
  EXPECT_TRUE(_requests.has("A"));
  EXPECT_FALSE(_requests.has("C"));
  EXPECT_EQ(resume("C", 9), Texts{});
  EXPECT_EQ(resume("A", 9), (Texts{"1", "2"}));
  EXPECT_FALSE(_requests.has("A"));
  EXPECT_TRUE(_requests.has("B"));
}

TEST_F(PostponedRequestsTest, AreNotTriedBehindOneThatStillWaits) {
  for (const char* text : {"1", "2", "3"}) add("A", text);
  EXPECT_EQ(resume("A", 1), (Texts{"1", "2"}));
  EXPECT_EQ(resume("A", 0), Texts{"2"});
  EXPECT_TRUE(_requests.has("A"));
  EXPECT_EQ(resume("A", 9), (Texts{"2", "3"}));
}

TEST_F(PostponedRequestsTest, HaveRoomTogetherForSoMany) {
  for (const char* text : {"1", "2", "3"}) EXPECT_TRUE(add("A", text));
  EXPECT_TRUE(add("B", "4"));
  EXPECT_FALSE(add("B", "5"));
  EXPECT_FALSE(add("C", "5"));
  EXPECT_FALSE(_requests.has("C"));
  EXPECT_EQ(resume("A", 1), (Texts{"1", "2"}));
  EXPECT_TRUE(add("C", "5"));
  EXPECT_FALSE(add("C", "6"));
}

// What one of them changes may be kept at once, and then there is more to resume.
TEST_F(PostponedRequestsTest, AreTriedOnceWhenTheyAreResumedFromWithin) {
  for (const char* text : {"1", "2"}) add("A", text);
  Texts tried;
  _requests.resume("A", [&](const Message& message) {
    tried.emplace_back(message.bytes);
    EXPECT_FALSE(_requests.has("A")) << "none waits before this one";
    EXPECT_EQ(resume("A", 9), Texts{});
    return true;
  });
  EXPECT_EQ(tried, (Texts{"1", "2"}));
}

TEST_F(PostponedRequestsTest, KeepWhatBelongsToTheMessage) {
  Origin origin;
  origin.connection = 7;
  {
    const std::string bytes = "bytes of the caller's";
    _requests.add("A", {bytes, origin, 17});
  }
  _requests.resume("A", [&](const Message& message) {
    EXPECT_EQ(message.bytes, "bytes of the caller's");
    EXPECT_EQ(message.origin, origin);
    EXPECT_EQ(message.receivedAt, 17);
    return true;
  });
}

}  // namespace
}  // namespace dch
