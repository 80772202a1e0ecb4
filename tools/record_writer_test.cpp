#include "tools/record_writer.h"

#include <gtest/gtest.h>

namespace tools {
namespace {

const std::vector<RecordColumn> nameAndSize = {{"name"}, {"size", true}};

// ---- Table ----

TEST(TableRecords, AlignNumbersToTheRightUnderCapitalNames) {
  const auto writer = makeRecordWriter("table", {{"name", false, 6}, {"size", true, 5}, {"help"}});
  EXPECT_EQ(writer->format({"load1", "16", "a minute"}),
            "NAME     SIZE  HELP\n"
            "load1      16  a minute\n");
  EXPECT_EQ(writer->format({"x", "12345", ""}), "x       12345\n") << "no blanks at the end";
}

TEST(TableRecords, AreAtLeastAsWideAsTheirNames) {
  const auto writer = makeRecordWriter("table", {{"letter", false, 1}, {"size", true, 1}});
  EXPECT_EQ(writer->format({"G", "4"}),
            "LETTER  SIZE\n"
            "G          4\n");
}

TEST(TableRecords, KeepAllOfAValueThatIsTooWide) {
  const auto writer = makeRecordWriter("table", nameAndSize);
  writer->format({"a", "1"});
  EXPECT_EQ(writer->format({"longer", "123456"}), "longer  123456\n");
}

TEST(TableRecords, EscapeWhatCouldSteerTheTerminalAndAlignByWhatIsSeen) {
  const auto writer = makeRecordWriter("table", {{"name", false, 8}, {"size", true}});
  EXPECT_EQ(writer->format({"a\x1b[2J\n", "1"}),
            "NAME      SIZE\n"
            "a\\x1b[2J\\x0a     1\n");
  EXPECT_EQ(writer->format({"a\tb", "1"}), "a\\x09b       1\n");
}

// ---- CSV ----

TEST(CsvRecords, BeginWithTheNamesOnce) {
  const auto writer = makeRecordWriter("csv", nameAndSize);
  EXPECT_EQ(writer->format({"a", "1"}), "name,size\na,1\n");
  EXPECT_EQ(writer->format({"b", "2"}), "b,2\n");
}

TEST(CsvRecords, QuoteWhatWouldBreakTheLine) {
  const auto writer = makeRecordWriter("csv", nameAndSize);
  writer->format({"a", "1"});
  EXPECT_EQ(writer->format({"a,b", "say \"x\""}), "\"a,b\",\"say \"\"x\"\"\"\n");
  EXPECT_EQ(writer->format({"a\nb", ""}), "\"a\nb\",\"\"\n");
  EXPECT_EQ(writer->format({"", " 1"}), "\"\",\" 1\"\n") << "an empty first field counts too";
}

// ---- JSON ----

TEST(JsonRecords, AreObjectsInTheOrderOfTheColumnsWithoutAHeader) {
  const auto writer = makeRecordWriter("jsonl", {{"size", true}, {"name"}});
  EXPECT_EQ(writer->format({"-16", "12"}), "{\"size\":-16,\"name\":\"12\"}\n");
  EXPECT_EQ(writer->format({"9223372036854775807", "\"\x01\n"}),
            "{\"size\":9223372036854775807,\"name\":\"\\\"\\u0001\\n\"}\n");
}

TEST(JsonRecords, KeepANumberThatIsNoneAsText) {
  const auto writer = makeRecordWriter("jsonl", {{"size", true}});
  for (const std::string value : {"", "x", "1.5", "007", "1x", "true", "null", "[1]"})
    EXPECT_EQ(writer->format({value}), "{\"size\":\"" + value + "\"}\n");
  EXPECT_EQ(writer->format({"99999999999999999999"}), "{\"size\":\"99999999999999999999\"}\n");
}

TEST(JsonRecords, ReplaceBytesThatAreNoText) {
  const auto writer = makeRecordWriter("jsonl", {{"name"}});
  EXPECT_EQ(writer->format({"a\xff"}), "{\"name\":\"a\xef\xbf\xbd\"}\n");
}

}  // namespace
}  // namespace tools
