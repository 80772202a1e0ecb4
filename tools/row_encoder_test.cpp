#include "tools/row_encoder.h"

#include <gmock/gmock.h>

#include "tools/common/values.h"
#include "zordchcl/zordchcl.h"

namespace tools {
namespace {

using Form = InputField::Form;

const suite::RegisteredAttribute number{"load1", 'G', 2, ""};
const suite::RegisteredAttribute note{"note", 'T', 4096, ""};

std::string rowRefusal(const std::vector<InputField>& fields) {
  try {
    encodeRow({1, fields});
    return "";
  } catch (const BadValue& error) {
    return error.what();
  }
}

TEST(RowEncoder, EncodesEveryFieldInItsPlace) {
  const EncodedRow row = encodeRow({1, {{&note, Form::csv, "x"}, {&number, Form::csv, "0"}}});
  ASSERT_EQ(row.size(), 2U);
  EXPECT_EQ(row[0].attribute, &note);
  EXPECT_EQ(row[0].bytes, std::string("x\0", 2));
  EXPECT_EQ(row[1].attribute, &number);
  EXPECT_EQ(row[1].bytes, std::string("\0\0", 2));
}

TEST(RowEncoder, NamesTheAttributeOfABadValue) {
  EXPECT_EQ(rowRefusal({{&note, Form::csv, "x"}, {&number, Form::csv, "x"}}),
            "attribute 'load1': 'x' is not a whole number");
}

TEST(RowEncoder, JsonTellsNumbersFromTexts) {
  EXPECT_EQ(rowRefusal({{&number, Form::jsonText, "1"}}),
            "attribute 'load1': a text where a number is expected");
  EXPECT_EQ(rowRefusal({{&note, Form::jsonNumber, "1"}}),
            "attribute 'note': a number where a text is expected");
  EXPECT_EQ(rowRefusal({{&number, Form::jsonNumber, "1"}, {&note, Form::jsonText, "1"}}), "");
}

TEST(RowEncoder, ARowNeedsAValue) {
  EXPECT_EQ(rowRefusal({}), "the row has no value");
}

// The message around one text: 30 bytes of header, the attribute's name and value with their field
// headers of 6 bytes, the name's zero and the value's letter and zero.
TEST(RowEncoder, ARowFillsAMessageToItsLastByteAndNoFurther) {
  const std::size_t around = 30 + (6 + 5) + (6 + 1 + 1);
  const std::string fits(DCH_WORK_BUFFER_SIZE - around, 'x');
  EXPECT_EQ(rowRefusal({{&note, Form::csv, fits}}), "");
  EXPECT_EQ(rowRefusal({{&note, Form::csv, fits + "x"}}),
            "the row takes 4097 bytes as a message, which holds 4096");

  // The library agrees.
  for (const std::string& text : {fits, fits + "x"}) {
    char* buffer = nullptr;
    ZORA_Long status = 0;
    ZORA_Long size = 0;
    dp_formatData(&status, &buffer, &size, "note", text.c_str(),
                  static_cast<ZORA_Long>(text.size() + 1), 'T');
    EXPECT_EQ(status, text == fits ? 0 : 4);
    delete[] buffer;
  }
}

}  // namespace
}  // namespace tools
