#include "dch/web/rows_text.h"

#include <gtest/gtest.h>

namespace dch {
namespace {

void writeSome(RowsText* text) {
  text->columns({"time", "a,b", "mean"});
  text->beginRow();
  text->time(1'769'903'999'123'456);
  text->value({AttributeValue::Kind::text, 0, "x\"y\nz"});
  text->real(0.5);
  text->endRow();
  text->beginRow();
  text->time(0);
  text->value({});
  text->value({AttributeValue::Kind::bytes, 0, "\xFF"});
  text->endRow();
  text->end();
}

TEST(RowsText, IsJson) {
  const auto text = makeJsonRows();
  writeSome(text.get());
  EXPECT_STREQ("application/json", text->type());
  EXPECT_EQ(
      R"({"columns":["time","a,b","mean"],"rows":[["2026-01-31T23:59:59.123456Z","x\"y\nz",0.5],)"
      R"(["1970-01-01T00:00:00.000000Z",null,"0xff"]]})",
      text->take());
}

TEST(RowsText, IsJsonWithoutRows) {
  const auto text = makeJsonRows();
  text->columns({"time"});
  text->end();
  EXPECT_EQ(R"({"columns":["time"],"rows":[]})", text->take());
}

TEST(RowsText, IsCommaSeparatedValues) {
  const auto text = makeCsvRows();
  writeSome(text.get());
  EXPECT_EQ(
      "time,\"a,b\",mean\n"
      "2026-01-31T23:59:59.123456Z,\"x\"\"y\nz\",0.5\n"
      "1970-01-01T00:00:00.000000Z,,0xff\n",
      text->take());
}

TEST(RowsText, ShowsBytesThatAreNoTextByTheirDigits) {
  for (const auto& make : {makeJsonRows, makeCsvRows}) {
    const auto text = make();
    text->columns({"source"});
    text->beginRow();
    text->value({AttributeValue::Kind::text, 0, "\xC3("});
    text->endRow();
    EXPECT_NE(std::string::npos, text->take().find("0xc328"));
  }
}

TEST(RowsText, TellsAnEmptyTextFromNone) {
  const auto text = makeCsvRows();
  text->beginRow();
  text->value({AttributeValue::Kind::text, 0, ""});
  text->value({});
  text->endRow();
  EXPECT_EQ("\"\",\n", text->take());
}

}  // namespace
}  // namespace dch
