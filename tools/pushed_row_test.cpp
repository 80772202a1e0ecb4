#include "tools/pushed_row.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/scripted_dch.h"
#include "zordchcl/messages.h"

namespace tools {
namespace {

using Fields = std::function<void(DCH_MessageBuilder&)>;

std::string dataMessage(const Fields& addAttributes) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, static_cast<short>(DCH_REQUEST_DATA));
    message.add(DCH_handle, ZORA_Long{7});
    message.add(DCH_dataCode, short{0});
    addAttributes(message);
  });
}

void addNumber(DCH_MessageBuilder& message, const char* name, std::int32_t number) {
  message.add(DCH_attrName, name).addAttributeValue(&number, sizeof number, 'G');
}

std::string refusal(std::string message) {
  try {
    readPushedRow(message);
    return "";
  } catch (const MalformedMessage& error) {
    return error.what();
  }
}

TEST(PushedRow, HoldsTheHandleAndTheValuesInTheirOrder) {
  std::string message = dataMessage([](DCH_MessageBuilder& fields) {
    addNumber(fields, "load1", -17);
    fields.add(DCH_attrName, "note").addAttributeValue("calm\0", 5, 'T');
    fields.add(DCH_attrName, "odd").addAttributeValue("abc", 3, 'G');
  });
  const PushedRow row = readPushedRow(message);
  EXPECT_EQ(row.handle, 7);
  ASSERT_EQ(row.values.size(), 3U);
  EXPECT_EQ(row.values[0].name, "load1");
  EXPECT_EQ(row.values[0].value.number, -17);
  EXPECT_EQ(row.values[1].value.text, "calm");
  EXPECT_EQ(row.values[2].value.text, "0x616263");
}

TEST(PushedRow, WhatLiesBehindTheMessageIsNotLookedAt) {
  std::string message =
      dataMessage([](DCH_MessageBuilder& fields) { addNumber(fields, "load1", 1); });
  message.resize(32767, 'x');
  EXPECT_EQ(readPushedRow(message).values.size(), 1U);
}

TEST(PushedRow, ARowWithoutAttributesIsARow) {
  std::string message = dataMessage([](DCH_MessageBuilder&) {});
  EXPECT_TRUE(readPushedRow(message).values.empty());
}

TEST(PushedRow, AnotherRequestIsNoRow) {
  EXPECT_EQ(refusal(messageOf([](DCH_MessageBuilder& message) {
              message.add(DCH_requestType, static_cast<short>(DCH_REQUEST_ONLINE));
            })),
            "field 1: request 4117 is no data");
  EXPECT_EQ(refusal(statusAnswer(0)), "field 1: DCH_requestType expected, type 17 found");
}

TEST(PushedRow, NamesWithoutValuesAndValuesWithoutNamesAreRefused) {
  EXPECT_EQ(refusal(dataMessage([](auto& fields) { fields.add(DCH_attrName, "load1"); })),
            "field 5: DCH_attrValue expected, type 0 found");
  EXPECT_EQ(refusal(dataMessage([](auto& fields) { fields.addAttributeValue("x", 1, 'T'); })),
            "field 4: DCH_attrName expected, type 81 found");
}

TEST(PushedRow, AnAttributeThatStandsTwiceIsRefused) {
  EXPECT_EQ(refusal(dataMessage([](DCH_MessageBuilder& fields) {
              addNumber(fields, "a\x1b", 1);
              addNumber(fields, "a\x1b", 2);
            })),
            "field 6: attribute 'a\\x1b' stands twice");
}

TEST(PushedRow, ACutMessageIsRefusedAtEveryLength) {
  const std::string whole = dataMessage([](DCH_MessageBuilder& fields) {
    addNumber(fields, "load1", 1);
    fields.add(DCH_attrName, "note").addAttributeValue("calm\0", 5, 'T');
  });
  const std::size_t headerEnd = DCH_DATA_ATTRIBUTES_OFFSET;
  const std::size_t firstAttributeEnd = headerEnd + (6 + 6) + (6 + 1 + 4);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const bool endsBetweenAttributes = length == headerEnd || length == firstAttributeEnd;
    EXPECT_EQ(refusal(whole.substr(0, length)).empty(), endsBetweenAttributes) << length;
  }
}

// A message with bytes changed at random is a row or is refused: nothing else can happen. The
// sanitizers see what is read.
TEST(PushedRow, DamagedMessagesAreReadOrRefused) {
  const std::string whole = dataMessage([](DCH_MessageBuilder& fields) {
    addNumber(fields, "load1", 1);
    fields.add(DCH_attrName, "note").addAttributeValue("calm\0", 5, 'T');
  });
  std::mt19937 random(20260131);
  const auto below = [&](std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
  };
  int refused = 0;
  for (int i = 0; i < 20000; ++i) {
    std::string damaged = whole;
    for (std::size_t changes = 1 + below(4); changes > 0; --changes)
      damaged[below(damaged.size())] = static_cast<char>(below(256));
    refused += refusal(damaged).empty() ? 0 : 1;
  }
  EXPECT_GT(refused, 0);
  EXPECT_LT(refused, 20000);
}

}  // namespace
}  // namespace tools
