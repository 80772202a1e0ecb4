#include "dch/web/json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

namespace dch {
namespace {

TEST(Json, PutsCommasBetweenMembersAndElements) {
  Json json;
  json.beginObject().key("a").beginArray().number(1).number(2).endArray();
  json.key("b").beginObject().endObject().key("c").null().key("d").boolean(true).endObject();
  EXPECT_EQ(R"({"a":[1,2],"b":{},"c":null,"d":true})", json.take());
}

TEST(Json, GoesOnBehindWhatWasTaken) {
  Json json;
  json.beginArray().number(1);
  EXPECT_EQ("[1", json.take());
  EXPECT_EQ(0U, json.size());
  json.number(2).endArray();
  EXPECT_EQ(",2]", json.take());
}

TEST(Json, IsExactForWholeNumbersOf64Bits) {
  Json json;
  json.beginArray();
  json.number(std::numeric_limits<std::int64_t>::min());
  json.number(std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ("[-9223372036854775808,9223372036854775807", json.take());
}

TEST(Json, WritesRealNumbersSoThatTheyAreReadAsTheSame) {
  for (const double each : {0.1, 1e300, -2.5, 1.0 / 3}) {
    Json json;
    json.real(each);
    EXPECT_EQ(each, nlohmann::json::parse(json.take()).get<double>());
  }
}

TEST(Json, EscapesWhatATextMayHold) {
  std::string text;
  for (int byte = 0; byte < 0x80; ++byte) text += static_cast<char>(byte);
  text += "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80</script>";
  Json json;
  json.text(text);
  const std::string written = json.take();
  EXPECT_EQ(std::string::npos, written.find('\n'));
  EXPECT_EQ(text, nlohmann::json::parse(written).get<std::string>());
}

TEST(Json, ShowsBytesThatAreNoTextByTheirDigits) {
  Json json;
  json.beginObject().key("\xFF").text(std::string_view("a\x00\xFE", 3)).endObject();
  EXPECT_EQ(R"({"0xff":"0x6100fe"})", json.take());
}

TEST(Json, WritesAValueAsWhatItIs) {
  Json json;
  json.beginArray();
  json.value({AttributeValue::Kind::number, -5, {}})
      .value({AttributeValue::Kind::text, 0, "a\"b"})
      .value({AttributeValue::Kind::bytes, 0, "ab"});
  json.value({}).endArray();
  EXPECT_EQ(R"([-5,"a\"b","0x6162",null])", json.take());
}

}  // namespace
}  // namespace dch
