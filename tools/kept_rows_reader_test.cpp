#include "tools/kept_rows_reader.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>

#include "tools/kept_row_writer.h"

namespace tools {
namespace {

using ::testing::ElementsAre;

constexpr std::string_view twoRows =
    R"({"columns":["time","a \"b\"","c"],"rows":[["T",9223372036854775807,null],)"
    R"(["ü\n",-9223372036854775808,18446744073709551615]]})";

class RecordingSink : public KeptRowsSink {
 public:
  void columns(const std::vector<std::string>& names) override { _columns = names; }
  void row(const std::vector<KeptValue>& values) override {
    std::string line;
    for (const KeptValue& each : values)
      line += (each.kind == KeptValue::Kind::none     ? "-"
               : each.kind == KeptValue::Kind::number ? "#"
                                                      : "'") +
              each.text + ' ';
    _rows.push_back(line);
  }
  std::vector<std::string> _columns;
  std::vector<std::string> _rows;
};

// In pieces of so many bytes.
void read(std::string_view text, std::size_t pieceBytes, KeptRowsSink* sink) {
  readKeptRows(
      [&] {
        const std::string_view piece = text.substr(0, pieceBytes);
        text.remove_prefix(piece.size());
        return piece;
      },
      sink);
}

TEST(KeptRowsReader, GivesEachRowWhereverItsTextIsCut) {
  for (std::size_t pieceBytes = 1; pieceBytes <= twoRows.size(); ++pieceBytes) {
    RecordingSink sink;
    read(twoRows, pieceBytes, &sink);
    EXPECT_THAT(sink._columns, ElementsAre("time", "a \"b\"", "c"));
    EXPECT_THAT(sink._rows, ElementsAre("'T #9223372036854775807 - ",
                                        "'ü\n #-9223372036854775808 #18446744073709551615 "));
  }
}

TEST(KeptRowsReader, RefusesATextThatEndsBeforeItsEnd) {
  for (std::size_t length = 0; length < twoRows.size(); ++length) {
    RecordingSink sink;
    EXPECT_THROW(read(twoRows.substr(0, length), 7, &sink), MalformedRows) << length;
  }
}

TEST(KeptRowsReader, RefusesWhatIsOfAnotherForm) {
  for (const char* wrong :
       {"[]", "1", "\"a\"", "{}", R"({"rows":[]})", R"({"columns":["a"]})",
        R"({"columns":["a"],"rows":[1]})", R"({"columns":["a"],"rows":[[]]})",
        R"({"columns":["a"],"rows":[[1,2]]})", R"({"columns":["a"],"rows":[[[1]]]})",
        R"({"columns":["a"],"rows":[[{}]]})", R"({"columns":["a"],"rows":[[true]]})",
        R"({"columns":[1],"rows":[]})", R"({"columns":["a"],"rows":[]}x)",
        R"({"columns":["a"],"rows":[],"more":1})", R"({"columns":["a"],"columns":["b"]})",
        "{\"columns\":[\"a\xff\"],\"rows\":[]}"}) {
    RecordingSink sink;
    EXPECT_THROW(read(wrong, 3, &sink), MalformedRows) << wrong;
  }
}

TEST(KeptRowsReader, GivesARowBeforeTheNextPieceIsAskedFor) {
  RecordingSink sink;
  const std::string_view begin = R"({"columns":["a"],"rows":[[1])";
  int calls = 0;
  const auto next = [&]() -> std::string_view {
    if (++calls == 1) return begin;
    EXPECT_EQ(1U, sink._rows.size());
    return calls == 2 ? "]}" : "";
  };
  readKeptRows(next, &sink);
  EXPECT_EQ(3, calls);
}

TEST(CsvRecords, AreGivenWhole) {
  const std::string text = "a,b\n1,\"x\ny\"\"\n\"\n2,\"\"\n3,";
  for (std::size_t pieceBytes = 1; pieceBytes <= text.size(); ++pieceBytes) {
    CsvRecords records;
    std::string given;
    for (std::size_t at = 0; at < text.size(); at += pieceBytes) {
      given += records.take(std::string_view(text).substr(at, pieceBytes));
      EXPECT_TRUE(given.empty() || given.back() == '\n');
    }
    EXPECT_EQ("a,b\n1,\"x\ny\"\"\n\"\n2,\"\"\n", given);
    EXPECT_EQ(3U, records.count());
    EXPECT_TRUE(records.isInRecord());
  }
}

using Kind = KeptValue::Kind;

const std::vector<std::string> fewColumns = {"time", "time_us", "source", "handle",
                                             "code", "load1",   "note"};

std::vector<KeptValue> rowOf(KeptValue load, KeptValue note) {
  return {{Kind::text, "T"},   {Kind::number, "1"}, {Kind::text, "web1"}, {Kind::number, "7"},
          {Kind::number, "0"}, std::move(load),     std::move(note)};
}

TEST(KeptTableWriter, ShowsWhatPeopleWantAndEscapes) {
  const auto writer = makeKeptTableWriter(0);
  writer->columns(fewColumns);
  EXPECT_EQ(writer->format(rowOf({Kind::number, "17"}, {Kind::text, "a\x1b"})),
            "TIME  SOURCE     load1  note\n"
            "T     web1          17  a\\x1b\n");
  EXPECT_EQ(writer->format(rowOf({Kind::none, ""}, {Kind::none, ""})), "T     web1\n");
  EXPECT_EQ(writer->format(rowOf({Kind::number, "8"}, {Kind::text, "b"})),
            "T     web1           8  b\n");
  EXPECT_THROW(writer->columns({"time"}), MalformedRows);
}

TEST(KeptJsonLinesWriter, KeepsOrderNumbersAndWhatIsMissing) {
  const auto writer = makeKeptJsonLinesWriter();
  writer->columns(fewColumns);
  EXPECT_EQ(writer->format(rowOf({Kind::number, "18446744073709551615"}, {Kind::text, "\"\x01"})),
            R"({"time":"T","time_us":1,"source":"web1","handle":7,"code":0,)"
            R"("load1":18446744073709551615,"note":"\"\u0001"})"
            "\n");
  EXPECT_EQ(writer->format(rowOf({Kind::none, ""}, {Kind::none, ""})),
            R"({"time":"T","time_us":1,"source":"web1","handle":7,"code":0,)"
            R"("load1":null,"note":null})"
            "\n");
}

}  // namespace
}  // namespace tools
