#include "dch/core/row_message.h"

#include <gtest/gtest.h>

#include "dch/core/handles.h"
#include "dch/core/rows_out.h"
#include "dch/testkit/messages.h"

namespace dch {
namespace {

TEST(RowMessage, TellsItsAttributesInTheirOrder) {
  const std::string message =
      testkit::dataMessage(1, {{"load1", 'D', std::string("17\0", 3)}, {"count", 'N', "abcd"}});
  RowMessage row(message);
  EXPECT_EQ(row.code(), 7);
  RowMessage::Attribute attribute;
  ASSERT_TRUE(row.next(&attribute));
  EXPECT_EQ(attribute.name, "load1");
  EXPECT_EQ(attribute.letter, 'D');
  EXPECT_EQ(attribute.value, std::string_view("17\0", 3));
  ASSERT_TRUE(row.next(&attribute));
  EXPECT_EQ(attribute.name, "count");
  EXPECT_EQ(attribute.letter, 'N');
  EXPECT_EQ(attribute.value, "abcd");
  EXPECT_FALSE(row.next(&attribute));
}

TEST(RowMessage, MayHaveNoAttributes) {
  const std::string message = testkit::dataMessage(1);
  RowMessage::Attribute attribute;
  EXPECT_FALSE(RowMessage(message).next(&attribute));
}

TEST(RowMessage, EndsWithWhatIsNoAttribute) {
  const std::string message = testkit::dataMessage(1, {{"load1", 'N', "abcd"}});
  for (std::size_t size = 0; size < message.size(); ++size) {
    RowMessage row(std::string_view(message).substr(0, size));
    RowMessage::Attribute attribute;
    EXPECT_FALSE(row.next(&attribute)) << size;
  }
}

TEST(RowMessage, IsWhatAServerTakesFromAProvider) {
  const std::string message = testkit::dataMessage(
      1, {{"load1", 'D', std::string("17\0", 3)}, {"count", 'N', "abcd"}, {"load1", 'T', ""}});
  std::vector<std::string_view> attributes;
  ASSERT_TRUE(readRow(message, &attributes));
  EXPECT_EQ(attributes, (std::vector<std::string_view>{"load1", "count", "load1"}));
  EXPECT_TRUE(readRow(testkit::dataMessage(1), &attributes)) << "one without values";
  for (std::size_t size = 0; size < message.size(); ++size)
    EXPECT_FALSE(readRow(message.substr(0, size), &attributes)) << size;
  EXPECT_FALSE(readRow(message + '\0', &attributes));
  EXPECT_FALSE(readRow(testkit::onlineMessage("A", "g", "host"), &attributes));
  EXPECT_FALSE(readRow(testkit::dataMessage(1, {{"", 'N', "abcd"}}), &attributes));
  EXPECT_TRUE(readRow(testkit::dataMessage(1, {{std::string(32, 'a'), 'N', "abcd"}}), &attributes));
  EXPECT_FALSE(
      readRow(testkit::dataMessage(1, {{std::string(33, 'a'), 'N', "abcd"}}), &attributes));
  const std::size_t without = testkit::dataMessage(1, {{"a", 'D', ""}}).size();
  const std::string longest(maxDatagramBytes - without, 'x');
  EXPECT_TRUE(readRow(testkit::dataMessage(1, {{"a", 'D', longest}}), &attributes));
  EXPECT_FALSE(readRow(testkit::dataMessage(1, {{"a", 'D', longest + 'x'}}), &attributes));
}

TEST(RowMessage, MayGetAnotherHandleAndIsTheSameElse) {
  for (const ZORA_Long handle : {ZORA_Long{0x01020304}, firstRemoteHandle, ZORA_Long{-1}}) {
    std::string message = testkit::dataMessage(7, {{"count", 'N', "abcd"}});
    setHandle(&message, handle);
    EXPECT_EQ(message, testkit::dataMessage(handle, {{"count", 'N', "abcd"}}));
  }
}

}  // namespace
}  // namespace dch
