#include "tools/row_writer.h"

#include <gtest/gtest.h>

#include <clocale>
#include <nlohmann/json.hpp>

namespace tools {
namespace {

PushedValue numberValue(const char* name, std::int64_t value) {
  return {name, {DecodedValue::Kind::number, value, std::to_string(value)}};
}
PushedValue text(const char* name, const char* value) {
  return {name, {DecodedValue::Kind::text, 0, value}};
}

// ---- Table ----

TEST(TableWriter, AlignsColumnsUnderTheirNames) {
  const auto writer = makeTableWriter(0);
  EXPECT_EQ(writer->format("12:00:00", {7, {numberValue("load1", 17), text("note", "calm")}}),
            "TIME      HANDLE     load1  note\n"
            "12:00:00       7        17  calm\n");
  EXPECT_EQ(writer->format("12:00:01", {7, {numberValue("load1", -2500), text("note", "")}}),
            "12:00:01       7     -2500\n");
}

TEST(TableWriter, RepeatsTheHeaderWhenTheAttributesChange) {
  const auto writer = makeTableWriter(0);
  writer->format("12:00:00", {7, {numberValue("load1", 17)}});
  EXPECT_EQ(writer->format("12:00:01", {7, {numberValue("load5", 1)}}),
            "TIME      HANDLE     load5\n"
            "12:00:01       7         1\n");
}

TEST(TableWriter, WidensAColumnUnderANewHeaderButNotWithoutEnd) {
  const auto writer = makeTableWriter(0);
  writer->format("12:00:00", {7, {text("note", "calm"), numberValue("load1", 1)}});
  EXPECT_EQ(writer->format("12:00:01", {7, {text("note", "rather busy"), numberValue("load1", 2)}}),
            "TIME      HANDLE  note            load1\n"
            "12:00:01       7  rather busy         2\n");
  const std::string longText(60, 'x');
  writer->format("12:00:02", {7, {text("note", longText.c_str()), numberValue("load1", 2)}});
  EXPECT_EQ(
      writer->format("12:00:03", {7, {text("note", longText.c_str()), numberValue("load1", 2)}}),
      "12:00:03       7  " + longText + "         2\n");
}

TEST(TableWriter, RepeatsTheHeaderAfterAScreenful) {
  const auto writer = makeTableWriter(3);
  const PushedRow row{7, {numberValue("load1", 17)}};
  const std::string line = "12:00:00       7        17\n";
  const std::string header = "TIME      HANDLE     load1\n";
  EXPECT_EQ(writer->format("12:00:00", row), header + line);
  EXPECT_EQ(writer->format("12:00:00", row), line);
  EXPECT_EQ(writer->format("12:00:00", row), header + line);
}

TEST(TableWriter, EscapesWhatCouldSteerTheTerminal) {
  const auto writer = makeTableWriter(0);
  EXPECT_EQ(writer->format("12:00:00", {7, {text("no\rte", "\x1b[2J\n")}}),
            "TIME      HANDLE  no\\x0dte\n"
            "12:00:00       7  \\x1b[2J\\x0a\n");
}

TEST(TableWriter, AlignsByColumnsNotByBytes) {
  ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  EXPECT_EQ(makeTableWriter(0)->format("1", {7, {text("n", "\u00e9\u6f22"), text("m", "x")}}),
            "TIME  HANDLE  n    m\n"
            "1          7  \u00e9\u6f22  x\n");
}

// ---- Comma-separated values ----

TEST(CsvWriter, BeginsWithTheNames) {
  const auto writer = makeCsvWriter();
  EXPECT_EQ(writer->format("T1", {7, {numberValue("load1", -17), text("note", "calm")}}),
            "time,handle,load1,note\n"
            "T1,7,-17,calm\n");
  EXPECT_EQ(writer->format("T2", {8, {numberValue("load1", 1), text("note", "busy")}}),
            "T2,8,1,busy\n");
}

TEST(CsvWriter, QuotesWhatWouldBeReadOtherwise) {
  EXPECT_EQ(makeCsvWriter()->format("T1", {7,
                                           {text("a,b", "say \"x\""), text("empty", ""),
                                            text("lines", "1\n2"), text("blank", " x")}}),
            "time,handle,\"a,b\",empty,lines,blank\n"
            "T1,7,\"say \"\"x\"\"\",\"\",\"1\n2\",\" x\"\n");
}

TEST(CsvWriter, StartsANewBlockWhenTheAttributesChange) {
  const auto writer = makeCsvWriter();
  writer->format("T1", {7, {numberValue("load1", 1)}});
  EXPECT_EQ(writer->format("T2", {7, {numberValue("load5", 2)}}),
            "\n"
            "time,handle,load5\n"
            "T2,7,2\n");
}

// ---- JSON lines ----

TEST(JsonLinesWriter, IsAnObjectPerLineWithTheAttributesInTheirOrder) {
  EXPECT_EQ(makeJsonLinesWriter()->format("T1", {7, {numberValue("z", -17), text("a", "b\"c\n")}}),
            "{\"time\":\"T1\",\"handle\":7,\"values\":{\"z\":-17,\"a\":\"b\\\"c\\n\"}}\n");
}

TEST(JsonLinesWriter, NumbersOf64BitsAreExact) {
  const std::string line = makeJsonLinesWriter()->format(
      "T1", {7, {numberValue("big", INT64_MAX), numberValue("low", INT64_MIN)}});
  const auto values = nlohmann::json::parse(line)["values"];
  EXPECT_EQ(values["big"].get<std::int64_t>(), INT64_MAX);
  EXPECT_EQ(values["low"].get<std::int64_t>(), INT64_MIN);
}

TEST(JsonLinesWriter, AnAttributeCalledTimeDoesNotHideTheTime) {
  EXPECT_EQ(makeJsonLinesWriter()->format("T1", {7, {text("time", "noon")}}),
            "{\"time\":\"T1\",\"handle\":7,\"values\":{\"time\":\"noon\"}}\n");
}

TEST(JsonLinesWriter, ReplacesWhatIsNoUtf8) {
  EXPECT_EQ(makeJsonLinesWriter()->format("T1", {7, {text("a", "x\xffy")}}),
            "{\"time\":\"T1\",\"handle\":7,\"values\":{\"a\":\"x\ufffdy\"}}\n");
}

// ---- Time ----

TEST(FormatTime, IsInUtcWithMilliseconds) {
  using namespace std::chrono;
  EXPECT_EQ(formatTime(system_clock::time_point(milliseconds(1769903999123))),
            "2026-01-31T23:59:59.123Z");
  EXPECT_EQ(formatTime(system_clock::time_point(seconds(0))), "1970-01-01T00:00:00.000Z");
}

}  // namespace
}  // namespace tools
