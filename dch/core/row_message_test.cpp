#include "dch/core/row_message.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace dch
