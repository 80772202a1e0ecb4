#include "dch/link/shared_registrations.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "suite/fields.h"

namespace dch {
namespace {

std::string registrationText(const std::string& application) {
  return "appl:" + application + ",KEY;group:load;attr:a,A,4;";
}

TEST(SharedRegistrations, GivesTheSameOneForTheSameText) {
  SharedRegistrations registrations;
  const auto host = registrations.of(registrationText("HOST"));
  ASSERT_TRUE(host);
  EXPECT_EQ(host->applName, "HOST");
  EXPECT_EQ(registrations.of(registrationText("HOST")), host);
  EXPECT_NE(registrations.of(registrationText("DISK")), host);
}

TEST(SharedRegistrations, TakesAShortestFormAlone) {
  SharedRegistrations registrations;
  const std::string text = registrationText("HOST");
  EXPECT_TRUE(registrations.of(text));
  EXPECT_FALSE(registrations.of(" " + text));
  EXPECT_FALSE(registrations.of(text + "group:"));
  EXPECT_FALSE(registrations.of(""));
  EXPECT_EQ(registrations.size(), 1u);
}

TEST(SharedRegistrations, TakesNoneThatFitsIntoNoMessage) {
  SharedRegistrations registrations;
  std::string text = registrationText("HOST");
  std::string fitting;
  for (int index = 0; text.size() <= ZOR0_MAX_REQUEST_SIZE; ++index) {
    fitting = text;
    text += "attr:attribute" + std::to_string(index) + ",A,4;";
  }
  EXPECT_TRUE(registrations.of(fitting));
  EXPECT_FALSE(registrations.of(text));
}

TEST(SharedRegistrations, ForgetsThoseThatNobodyHas) {
  SharedRegistrations registrations;
  const auto kept = registrations.of(registrationText("KEPT"));
  ASSERT_TRUE(kept);
  for (int index = 0; index < 10'000; ++index)
    ASSERT_TRUE(registrations.of(registrationText("A" + std::to_string(index))));
  EXPECT_LE(registrations.size(), 64u);
  EXPECT_EQ(registrations.of(registrationText("KEPT")), kept);
}

TEST(SharedRegistrations, ParsesAgainWhatNobodyHadAnyMore) {
  SharedRegistrations registrations;
  registrations.of(registrationText("HOST"));
  const auto again = registrations.of(registrationText("HOST"));
  ASSERT_TRUE(again);
  EXPECT_EQ(again->applName, "HOST");
  EXPECT_EQ(registrations.of(registrationText("HOST")), again);
  EXPECT_EQ(registrations.size(), 1u);
}

TEST(SharedRegistrations, KeepsAllThatSomebodyHas) {
  SharedRegistrations registrations;
  std::vector<std::shared_ptr<const suite::Registration>> kept;
  for (int index = 0; index < 1'000; ++index)
    ASSERT_TRUE(kept.emplace_back(registrations.of(registrationText("A" + std::to_string(index)))));
  for (int index = 0; index < 1'000; ++index)
    EXPECT_EQ(registrations.of(registrationText("A" + std::to_string(index))),
              kept[static_cast<std::size_t>(index)]);
}

}  // namespace
}  // namespace dch
