#include "dch/core/remote_handles.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace dch {
namespace {

LiveRow row(const std::string& site, const std::string& source, const std::string& message = "") {
  return {site, "A", "g", source, message};
}

std::vector<std::string> messagesOf(const std::vector<LiveRow>& rows) {
  std::vector<std::string> messages;
  for (const LiveRow& each : rows) messages.push_back(each.message);
  return messages;
}

using Messages = std::vector<std::string>;

TEST(RemoteHandles, RowsWaitForTheHandleOfTheirSourceInTheirOrder) {
  RemoteHandles handles;
  EXPECT_EQ(handles.find({"s", "A", "g", "host1"}), std::nullopt);
  EXPECT_TRUE(handles.hold(row("s", "host1", "1")));
  EXPECT_TRUE(handles.hold(row("s", "host2", "2")));
  auto first = handles.toAsk();
  EXPECT_EQ(first->source, "host1");
  EXPECT_EQ(handles.find({"s", "A", "g", "host1"}), std::nullopt);
  EXPECT_TRUE(handles.hold(row("s", "host1", "3")));
  EXPECT_EQ(handles.toAsk()->source, "host2");
  EXPECT_FALSE(handles.toAsk()) << "each is asked for once";
  first->handle = 17;
  EXPECT_EQ(messagesOf(handles.concluded(*first, true)), (Messages{"1", "3"}));
  EXPECT_EQ(handles.find({"s", "A", "g", "host1"}), 17);
  EXPECT_EQ(handles.find({"s", "A", "g", "host2"}), std::nullopt);
  EXPECT_EQ(handles.waiting(), 1u);
}

TEST(RemoteHandles, WhatWasNotKeptIsAskedForAgain) {
  RemoteHandles handles;
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(handles.hold(row("s", "host", "1")));
    const auto asked = handles.toAsk();
    EXPECT_EQ(messagesOf(handles.concluded(*asked, false)), Messages{"1"});
    EXPECT_EQ(handles.find({"s", "A", "g", "host"}), std::nullopt);
  }
}

TEST(RemoteHandles, ASourceWithoutRoomIsNotAskedForAgain) {
  RemoteHandles handles;
  EXPECT_TRUE(handles.hold(row("s", "host")));
  EXPECT_EQ(handles.concluded(*handles.toAsk(), true).size(), 1u);
  EXPECT_EQ(handles.find({"s", "A", "g", "host"}), 0);
}

// One of the others is what it had before.
TEST(RemoteHandles, ASiteWithoutRoomIsAskedForOneByOne) {
  RemoteHandles handles({.asked = 8});
  const auto ask = [&] {
    std::vector<RemoteSourceSeen> asked;
    while (auto each = handles.toAsk()) asked.push_back(*each);
    return asked;
  };
  for (int source = 0; source < 5; ++source)
    EXPECT_TRUE(handles.hold(row("s", std::to_string(source))));
  auto asked = ask();
  ASSERT_EQ(asked.size(), 2u);
  handles.concluded(asked[0], true);
  EXPECT_TRUE(ask().empty());
  handles.concluded(asked[1], true);
  for (int source = 2; source < 5; ++source) {
    EXPECT_TRUE(handles.hold(row("t", std::to_string(source))));
    asked = ask();
    ASSERT_EQ(asked.size(), 2u);
    EXPECT_EQ(asked[0].site + asked[0].source, "s" + std::to_string(source));
    EXPECT_EQ(asked[1].site, "t");
    asked[0].handle = asked[1].handle = 17;
    for (const RemoteSourceSeen& each : asked) handles.concluded(each, true);
  }
}

TEST(RemoteHandles, ASiteHasAQuarterOfTheRoom) {
  RemoteHandles handles;
  int rows = 0;
  while (handles.hold(row("s", "host"))) ++rows;
  EXPECT_EQ(rows, 250);
  const std::string large(8'000, 'x');
  while (handles.hold(row("t", "host", large))) ++rows;
  EXPECT_EQ(rows, 250 + (1 << 20) / (8'000 + 7));
  EXPECT_TRUE(handles.hold(row("t", "host"))) << "a smaller one";
  for (const char* const site : {"u", "v", "w"})
    while (handles.hold(row(site, "host"))) ++rows;
  EXPECT_EQ(handles.waiting(), 1'000u);
  EXPECT_FALSE(handles.hold(row("x", "host")));
  handles.concluded(*handles.toAsk(), true);
  EXPECT_TRUE(handles.hold(row("x", "host")));
}

TEST(RemoteHandles, ForgetsThemWhenTheyAreTooMany) {
  RemoteHandles handles({.atHand = 2});
  for (const char* const source : {"1", "2", "3"}) {
    EXPECT_TRUE(handles.hold(row("s", source)));
    auto asked = handles.toAsk();
    asked->handle = 17;
    handles.concluded(*asked, true);
  }
  EXPECT_EQ(handles.find({"s", "A", "g", "3"}), 17);
  EXPECT_EQ(handles.find({"s", "A", "g", "1"}), std::nullopt);
}

}  // namespace
}  // namespace dch
