#include "tools/row_reader.h"

#include <gmock/gmock.h>
#include <sysexits.h>
#include <unistd.h>

#include "tests/support/temporary_files.h"
#include "tools/common/failure.h"

namespace tools {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

const suite::RegisteredGroup group{
    "load", {{"load1", 'G', 4, ""}, {"load5", 'G', 4, ""}, {"note", 'T', 20, ""}}};

void noWait(int) {}

// The rows of an input as "LINE name=text ...", and the message of the failure that ended it.
struct Outcome {
  std::vector<std::string> rows;
  std::string error;
};

std::string describe(const InputRow& row) {
  std::string text = std::to_string(row.lineNumber);
  for (const InputField& field : row.fields) text += " " + field.attribute->name + "=" + field.text;
  return text;
}

using MakeReader =
    std::function<std::unique_ptr<RowReader>(LineInput&, const suite::RegisteredGroup&)>;

Outcome readAll(MakeReader makeReader, std::string_view content) {
  const TemporaryFile file(content);
  Outcome outcome;
  try {
    LineInput input(file.path(), noWait);
    const auto reader = makeReader(input, group);
    InputRow row;
    while (reader->next(&row)) outcome.rows.push_back(describe(row));
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.exitStatus(), EX_DATAERR);
    outcome.error = failure.what();
    EXPECT_EQ(outcome.error.find(file.path()), 0U) << outcome.error;
    outcome.error.erase(0, file.path().size());
  }
  return outcome;
}

Outcome readCsv(std::string_view content) {
  return readAll([](auto& input, const auto& of) { return makeCsvReader(input, of); }, content);
}
Outcome readJsonLines(std::string_view content) {
  return readAll(&makeJsonLinesReader, content);
}

// ---- Comma-separated values ----

TEST(CsvReader, TheFirstLineNamesTheAttributes) {
  EXPECT_THAT(readCsv("note,load1\nquiet,17\nbusy,25\n").rows,
              ElementsAre("2 note=quiet load1=17", "3 note=busy load1=25"));
}

TEST(CsvReader, AnEmptyColumnIsLeftOutAndQuotesMakeAnEmptyText) {
  EXPECT_THAT(readCsv("load1,note\n17,\n17,\"\"\n,\n").rows,
              ElementsAre("2 load1=17", "3 load1=17 note=", "4"));
}

TEST(CsvReader, QuotedFieldsHoldCommasQuotesAndLineEnds) {
  EXPECT_THAT(readCsv("load1,note\n1,\"a, \"\"b\"\"\nc\"\n2,d\n").rows,
              ElementsAre("2 load1=1 note=a, \"b\"\nc", "4 load1=2 note=d"));
}

TEST(CsvReader, OtherLineEndsEmptyLinesAndAMissingLastLineEndAreFine) {
  EXPECT_THAT(readCsv("\r\nload1,load5\r\n\r\n1,2\r\n\n3,4").rows,
              ElementsAre("4 load1=1 load5=2", "6 load1=3 load5=4"));
}

TEST(CsvReader, AByteOrderMarkIsSkipped) {
  EXPECT_THAT(readCsv("\xef\xbb\xbfload1\n5\n").rows, ElementsAre("2 load1=5"));
}

TEST(CsvReader, BlanksBelongToValuesButNotToNames) {
  EXPECT_THAT(readCsv("load1, note\n1, a \n").rows, ElementsAre("2 load1=1 note= a "));
}

TEST(CsvReader, InputWithoutRowsHasNone) {
  EXPECT_THAT(readCsv("").rows, ElementsAre());
  const Outcome namesOnly = readCsv("load1\n");
  EXPECT_THAT(namesOnly.rows, ElementsAre());
  EXPECT_EQ(namesOnly.error, "");
}

TEST(CsvReader, UnknownAndRepeatedNamesAreRefusedAtTheirLine) {
  EXPECT_EQ(readCsv("load1,laod5\n1,2\n").error,
            ":1: attribute 'laod5': the group 'load' has no such attribute");
  EXPECT_EQ(readCsv("\nload1,load1\n1,2\n").error, ":2: attribute 'load1': it is named twice");
  EXPECT_EQ(readCsv("load1,\n1,2\n").error,
            ":1: attribute '': the group 'load' has no such attribute");
}

TEST(CsvReader, AWrongNumberOfFieldsIsRefusedAfterTheRowsBefore) {
  const Outcome tooFew = readCsv("load1,load5\n1,2\n3\n");
  EXPECT_THAT(tooFew.rows, ElementsAre("2 load1=1 load5=2"));
  EXPECT_EQ(tooFew.error, ":3: 1 fields, but 2 attributes are named in the first line");
  EXPECT_EQ(readCsv("load1\n1,2,3\n").error,
            ":2: 3 fields, but 1 attributes are named in the first line");
}

TEST(CsvReader, WrongQuotesAreRefusedWhereTheirRowBegins) {
  EXPECT_EQ(readCsv("note\na\"b\n").error, ":2: a quote in a wrong place");
  EXPECT_EQ(readCsv("note\nx\n\"a\nb\n\n").error, ":3: a quoted field has no closing quote");
}

TEST(CsvReader, ARowWithoutEndIsRefusedBeforeItEatsTheMemory) {
  const std::string endless(maxRowBytes + 2, 'x');
  EXPECT_EQ(readCsv("note\n" + endless).error, ":2: the line is longer than 1048576 bytes");
  std::string openQuote = "note\n\"";
  for (int i = 0; i < 600; ++i) openQuote += std::string(2000, 'x') + "\n";
  EXPECT_THAT(readCsv(openQuote).error, HasSubstr(":2: the row is longer than 1048576 bytes"));
}

// ---- JSON lines ----

TEST(JsonLinesReader, EveryLineIsARow) {
  EXPECT_THAT(
      readJsonLines("{\"load1\": 17, \"note\": \"a\\n\\u00e9\"}\n\n  \n{\"load5\":-2}").rows,
      ElementsAre("1 load1=17 note=a\n\u00e9", "4 load5=-2"));
}

TEST(JsonLinesReader, NullIsLeftOutAndAnEmptyTextIsNot) {
  EXPECT_THAT(readJsonLines("{\"load1\":null,\"note\":\"\"}\n{}\n").rows,
              ElementsAre("1 note=", "2"));
}

TEST(JsonLinesReader, NumbersKeepTheirDigits) {
  EXPECT_THAT(
      readJsonLines("{\"load1\":1.50}\n{\"load1\":99999999999999999999}\n"
                    "{\"load1\":18446744073709551615}\n")
          .rows,
      ElementsAre("1 load1=1.50", "2 load1=99999999999999999999", "3 load1=18446744073709551615"));
}

TEST(JsonLinesReader, UnknownAndRepeatedNamesAreRefused) {
  EXPECT_EQ(readJsonLines("{\"load1\":1}\n{\"laod\":1}\n").error,
            ":2: attribute 'laod': the group 'load' has no such attribute");
  EXPECT_EQ(readJsonLines("{\"load1\":1,\"load1\":2}\n").error,
            ":1: attribute 'load1': it is named twice");
}

TEST(JsonLinesReader, OtherValuesAreRefused) {
  EXPECT_EQ(readJsonLines("{\"load1\":true}").error,
            ":1: attribute 'load1': true or false where a number or a text is expected");
  EXPECT_EQ(readJsonLines("{\"load1\":[1]}").error,
            ":1: attribute 'load1': an array where a number or a text is expected");
  EXPECT_EQ(readJsonLines("{\"load1\":{}}").error,
            ":1: attribute 'load1': an object where a number or a text is expected");
  EXPECT_EQ(readJsonLines("5").error, ":1: a single value where an object is expected");
  EXPECT_EQ(readJsonLines("null").error, ":1: null where an object is expected");
  EXPECT_EQ(readJsonLines("[{\"load1\":1}]").error, ":1: an array where an object is expected");
}

TEST(JsonLinesReader, MalformedLinesAreRefusedAfterTheRowsBefore) {
  const Outcome outcome = readJsonLines("{\"load1\":1}\n{\"load1\":2\n");
  EXPECT_THAT(outcome.rows, ElementsAre("1 load1=1"));
  EXPECT_THAT(outcome.error, HasSubstr(":2: malformed JSON at character "));
  EXPECT_THAT(readJsonLines("{\"load1\":1} x").error, HasSubstr(":1: malformed JSON"));
  EXPECT_THAT(readJsonLines("{\"note\":\"\xff\"}").error, HasSubstr(":1: malformed JSON"));
}

// ---- Words ----

MakeReader wordsReader() {
  return [](LineInput& input, const suite::RegisteredGroup& of) {
    return makeWordsReader(input, {&of.attributes[2], &of.attributes[0]});
  };
}

TEST(WordsReader, ColumnsStandBetweenBlanks) {
  EXPECT_THAT(readAll(wordsReader(), "quiet 17\n\n \t\r\n\tbusy\t  25 \r\nlast 1").rows,
              ElementsAre("1 note=quiet load1=17", "4 note=busy load1=25", "5 note=last load1=1"));
}

TEST(WordsReader, AnotherNumberOfWordsIsRefused) {
  EXPECT_EQ(readAll(wordsReader(), "quiet 17\nquiet\n").error,
            ":2: 1 words, but 2 columns are named");
  EXPECT_EQ(readAll(wordsReader(), "all quiet 17\n").error, ":1: 3 words, but 2 columns are named");
}

// ---- Whoever reads on after a row that is refused ----

// The rows as above, and of each line that is refused its number and the reason.
std::vector<std::string> readOn(const MakeReader& makeReader, std::string_view content) {
  const TemporaryFile file(content);
  LineInput input(file.path(), noWait);
  const auto reader = makeReader(input, group);
  std::vector<std::string> all;
  InputRow row;
  for (bool isThere = true; isThere;) try {
      isThere = reader->next(&row);
      if (isThere) all.push_back(describe(row));
    } catch (const RefusedLine& refused) {
      all.push_back(std::to_string(refused.number()) + ": " + refused.reason());
    }
  return all;
}

MakeReader csvReader(const RowColumns& columns = {}) {
  return [=](LineInput& input, const suite::RegisteredGroup& of) {
    return makeCsvReader(input, of, columns);
  };
}

TEST(ReadingOn, CsvGoesOnBehindWhatIsNoRow) {
  EXPECT_THAT(
      readOn(csvReader(), "laod1\nload1,note\n1,a\n2\n3,\"b\"c\n4,d\n5,\"e"),
      ElementsAre("1: attribute 'laod1': the group 'load' has no such attribute",
                  "3 load1=1 note=a", "4: 1 fields, but 2 attributes are named in the first line",
                  "5: a quote in a wrong place", "6 load1=4 note=d",
                  "7: a quoted field has no closing quote"));
}

TEST(ReadingOn, CsvColumnsMayBeNamedBefore) {
  EXPECT_THAT(readOn(csvReader({&group.attributes[0], &group.attributes[2]}), "1,a\n2\n,b\n"),
              ElementsAre("1 load1=1 note=a", "2: 1 fields, but 2 columns are named", "3 note=b"));
}

TEST(ReadingOn, WhatIsLeftOfALineThatIsTooLongIsSkipped) {
  const std::string tooLong(3 * maxRowBytes, 'x');
  const std::string reason = ": the line is longer than 1048576 bytes";
  EXPECT_THAT(readOn(csvReader(), "note\n\"a\n" + tooLong + "\nb\n" + tooLong),
              ElementsAre("3" + reason, "4 note=b", "5" + reason));
  EXPECT_THAT(
      readOn(wordsReader(), tooLong + "\nquiet 17\n" + tooLong + "\nbusy 25"),
      ElementsAre("1" + reason, "2 note=quiet load1=17", "3" + reason, "4 note=busy load1=25"));
}

TEST(ReadingOn, JsonGoesOnBehindWhatIsNoRow) {
  const std::vector<std::string> all =
      readOn(&makeJsonLinesReader, std::string("{\"load1\":1}\nx\0y\n{\"load1\":2}\n", 28));
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all[0], "1 load1=1");
  EXPECT_THAT(all[1], HasSubstr("2: malformed JSON"));
  EXPECT_EQ(all[2], "3 load1=2");
}

// ---- Where lines come from ----

TEST(LineInput, ALineIsGivenOutWhileTheRestIsStillToCome) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  LineInput input("/dev/fd/" + std::to_string(ends[0]), noWait);
  std::string line;
  ASSERT_EQ(write(ends[1], "one\ntw", 6), 6);
  ASSERT_TRUE(input.next(&line));
  EXPECT_EQ(line, "one\n");
  ASSERT_EQ(write(ends[1], "o", 1), 1);
  close(ends[1]);
  ASSERT_TRUE(input.next(&line));
  EXPECT_EQ(line, "two");
  EXPECT_EQ(input.lineNumber(), 2);
  EXPECT_FALSE(input.next(&line));
  close(ends[0]);
}

TEST(LineInput, WhatCannotBeReadIsNamed) {
  try {
    LineInput input("/nowhere/rows.csv", noWait);
    FAIL() << "opened what is not there";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.exitStatus(), EX_NOINPUT);
    EXPECT_STREQ(failure.what(), "cannot open /nowhere/rows.csv: No such file or directory");
  }
  try {
    LineInput input("/", noWait);
    std::string line;
    input.next(&line);
    FAIL() << "read a folder";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.exitStatus(), EX_NOINPUT);
    EXPECT_STREQ(failure.what(), "cannot read /: Is a directory");
  }
}

TEST(LineInput, WhatTheWaitThrowsEndsTheInput) {
  const TemporaryFile file("a\n");
  struct Stop {};
  LineInput input(file.path(), [](int) { throw Stop(); });
  std::string line;
  EXPECT_THROW(input.next(&line), Stop);
}

}  // namespace
}  // namespace tools
