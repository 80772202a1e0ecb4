#include "dch/core/field_reader.h"

#include <gtest/gtest.h>

#include "tests/support/messages.h"
#include "zordchcl/messages.h"

namespace dch {
namespace {

TEST(FieldReaderTest, ReadsFieldsInOrderAndLeavesTheMessageAsItWas) {
  const std::string original = messageOf([](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{-2})
        .add(DCH_handle, ZORA_Long{-3})
        .add(DCH_applName, "name")
        .addAttributeValue("value", 5, 'T')
        .addBytes(DCH_response, "text", 4);
  });
  std::string message = original;
  FieldReader fields(message);
  short code = 0;
  ZORA_Long handle = 0;
  std::string_view name, response, value;
  char letter = '\0';
  EXPECT_TRUE(fields.readShort(DCH_requestType, &code));
  EXPECT_TRUE(fields.readLong(DCH_handle, &handle));
  EXPECT_TRUE(fields.readText(DCH_applName, 4, &name));
  EXPECT_TRUE(fields.readAttributeValue(&letter, &value));
  EXPECT_FALSE(fields.atEnd());
  EXPECT_TRUE(fields.readResponse(&response));
  EXPECT_TRUE(fields.atEnd());
  EXPECT_EQ(code, -2);
  EXPECT_EQ(handle, -3);
  EXPECT_EQ(name, "name");
  EXPECT_EQ(letter, 'T');
  EXPECT_EQ(value, "value");
  EXPECT_EQ(response, "text");
  EXPECT_EQ(message, original);
}

TEST(FieldReaderTest, LeavesAFieldOfAnotherTypeAsItWas) {
  const std::string original = messageOf([](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{0x1030}).add(DCH_handle, ZORA_Long{5});
  });
  std::string message = original;
  FieldReader fields(message);
  ZORA_Long value = 0;
  EXPECT_FALSE(fields.readLong(DCH_status, &value));
  EXPECT_FALSE(fields.readLong(DCH_status, &value));
  EXPECT_EQ(message, original);
}

TEST(FieldReaderTest, RefusesATextOverItsLimit) {
  std::string message =
      messageOf([](DCH_MessageBuilder& builder) { builder.add(DCH_applName, "name"); });
  std::string_view name;
  EXPECT_FALSE(FieldReader(message).readText(DCH_applName, 3, &name));
}

}  // namespace
}  // namespace dch
