#include "suite/registration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "suite/fields.h"
#include "suite/zorp.h"
#include "tests/support/trace_capture.h"

namespace {

using suite::parseRegistration;
using suite::Registration;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char wholeText[] =
    "appl:HOSTMON,HMN;type:SOCK;help:Loads of the hosts;"
    "group:load;attr:load1,D,16,one minute;attr:users,N,4;"
    "group:disk;attr:free,L,8;";

// The error of a text that must be refused.
std::string errorOf(std::string_view text) {
  Registration untouched;
  untouched.applName = "untouched";
  std::string error;
  EXPECT_FALSE(parseRegistration(text, &untouched, &error)) << text;
  EXPECT_EQ(untouched.applName, "untouched");
  return error;
}

// The shortest form of a text that must be accepted.
std::string shortest(const std::string& text) {
  Registration registration;
  std::string error;
  EXPECT_TRUE(parseRegistration(text, &registration, &error)) << error;
  return registration.text;
}

std::string withAttribute(const std::string& clause) {
  return "appl:HOSTMON,HMN;group:load;" + clause;
}

TEST(RegistrationText, EveryClauseIsRead) {
  Registration registration;
  std::string error;
  ASSERT_TRUE(parseRegistration(wholeText, &registration, &error)) << error;
  EXPECT_EQ(registration.applName, "HOSTMON");
  EXPECT_EQ(registration.applKey, "HMN");
  EXPECT_EQ(registration.type, "SOCK");
  EXPECT_EQ(registration.help, "Loads of the hosts");
  ASSERT_EQ(registration.groups.size(), 2u);
  EXPECT_EQ(registration.groups[0].name, "load");
  ASSERT_EQ(registration.groups[0].attributes.size(), 2u);
  EXPECT_EQ(registration.groups[0].attributes[0].name, "load1");
  EXPECT_EQ(registration.groups[0].attributes[0].letter, 'D');
  EXPECT_EQ(registration.groups[0].attributes[0].size, 16);
  EXPECT_EQ(registration.groups[0].attributes[0].help, "one minute");
  EXPECT_EQ(registration.groups[0].attributes[1].help, "");
  EXPECT_EQ(registration.groups[1].name, "disk");
  EXPECT_EQ(registration.groups[1].attributes[0].letter, 'L');
  EXPECT_EQ(registration.text, wholeText);
}

TEST(RegistrationText, TypeDefaultsToNodpAndStaysAbsent) {
  Registration registration;
  std::string error;
  ASSERT_TRUE(parseRegistration(withAttribute("attr:a,D,1;"), &registration, &error));
  EXPECT_EQ(registration.type, "NODP");
  EXPECT_EQ(registration.help, "");
  EXPECT_EQ(registration.text, withAttribute("attr:a,D,1;"));
}

TEST(RegistrationText, BlanksAndLineEndsAroundClausesAndPartsDoNotCount) {
  EXPECT_EQ(shortest(" appl : HOSTMON ,\tHMN ;\r\n type: SOCK\n;\n\n group : the load ;\n"
                     " attr : load1 , D , 16 , one minute ; \n"),
            "appl:HOSTMON,HMN;type:SOCK;group:the load;attr:load1,D,16,one minute;");
}

TEST(RegistrationText, AnEmptyHelpPartIsLeftOut) {
  EXPECT_EQ(shortest(withAttribute("attr:a,D,1, ;")), withAttribute("attr:a,D,1;"));
}

TEST(RegistrationText, TheOrderOfClausesIsKept) {
  const std::string text = withAttribute("attr:a,D,1;help:last;type:FILE;");
  EXPECT_EQ(shortest(text), text);
}

TEST(RegistrationText, LimitsAreInclusive) {
  const std::string name(32, 'n');
  EXPECT_NE(shortest("appl:" + std::string(20, 'a') + ",KEY;group:" + name + ";attr:" + name +
                     ",D,1;attr:b,S,4096;"),
            "");
}

TEST(RegistrationText, EveryLetterAndTypeIsKnown) {
  for (const char letter : std::string("ACGLNDRTIS"))
    EXPECT_NE(shortest(withAttribute(std::string("attr:a,") + letter + ",4;")), "");
  for (const char* type : ZORA_DPTypeNames)
    EXPECT_NE(shortest("appl:A,KEY;type:" + std::string(type) + ";group:g;attr:a,D,1;"), "");
}

TEST(RegistrationText, TheSameAttributeMayBeInTwoGroups) {
  EXPECT_NE(shortest("appl:A,KEY;group:g;attr:a,D,1;group:h;attr:a,D,1;"), "");
}

TEST(RegistrationError, NamesTheClauseAndTheReason) {
  EXPECT_EQ(errorOf("appl:HOSTMON,HMN;type:SOCK;group:load;attr:load1,Q,4;"),
            "clause 4 <attr:load1,Q,4>: unknown attribute letter");
}

// Each text, and a part of the error that it gives.
TEST(RegistrationError, EveryBrokenRuleIsTold) {
  const std::string name33(33, 'n');
  const struct {
    std::string text;
    const char* error;
  } cases[] = {
      {"", "clause 1 <>: empty text"},
      {" \n ", "clause 1 <>: empty text"},
      {"appl:A,KEY", "clause 1 <appl:A,KEY>: no ';'"},
      {withAttribute("attr:a,D,1"), "clause 3 <attr:a,D,1>: no ';'"},
      {"appl:A,KEY;;", "clause 2 <>: empty clause"},
      {"appl", "clause 1 <appl>: no ';'"},
      {"appl;", "clause 1 <appl>: no ':'"},
      {"type:SOCK;", "clause 1 <type:SOCK>: the first clause is not appl"},
      {"appl:A,KEY;appl:A,KEY;", "clause 2 <appl:A,KEY>: appl appears twice"},
      {"appl:A;", "1 part instead of name and key"},
      {"appl:A,KEY,X;", "3 parts instead of name and key"},
      {"appl:,KEY;", "application name of 0 characters"},
      {"appl:" + std::string(21, 'a') + ",KEY;", "application name of 21 characters"},
      {"appl:A,KE;", "application key of 2 characters"},
      {"appl:A,KEYS;", "application key of 4 characters"},
      {"appl:A,KEY;type:SOCKET;", "unknown provider type"},
      {"appl:A,KEY;type:sock;", "unknown provider type"},
      {"appl:A,KEY;type:;", "unknown provider type"},
      {"appl:A,KEY;type:SOCK,FILE;", "2 parts instead of one type name"},
      {"appl:A,KEY;type:SOCK;type:SOCK;", "clause 3 <type:SOCK>: type appears twice"},
      {"appl:A,KEY;help:a;help:b;", "clause 3 <help:b>: help appears twice"},
      {"appl:A,KEY;help:a,b;", "2 parts instead of one text"},
      {"appl:A,KEY;help:it's;", "a part holds one of"},
      {"appl:A,KEY;help:a:b;", "a part holds one of"},
      {"appl:A,KEY;help:a\"b;", "a part holds one of"},
      {"appl:A,KEY;other:x;", "clause 2 <other:x>: unknown keyword"},
      {"appl:A,KEY;Group:x;", "unknown keyword"},
      {"appl:A,KEY;attr:a,D,1;", "attribute before the first group"},
      {"appl:A,KEY;", "clause 1 <appl:A,KEY>: the text ends without a group"},
      {"appl:A,KEY;group:;", "group name of 0 characters"},
      {"appl:A,KEY;group:" + name33 + ";", "group name of 33 characters"},
      {"appl:A,KEY;group:a,b;", "2 parts instead of one name"},
      {"appl:A,KEY;group:g;", "clause 2 <group:g>: the group has no attribute"},
      {"appl:A,KEY;group:g;group:h;", "the group before it, g, has no attribute"},
      {"appl:A,KEY;group:g;attr:a,D,1;group:g;", "clause 4 <group:g>: group appears twice"},
      {withAttribute("attr:a,D,1;attr:a,N,4;"), "clause 4 <attr:a,N,4>: attribute appears twice"},
      {withAttribute("attr:a,D;"), "2 parts instead of"},
      {withAttribute("attr:a,D,1,h,i;"), "5 parts instead of"},
      {withAttribute("attr:,D,1;"), "attribute name of 0 characters"},
      {withAttribute("attr:" + name33 + ",D,1;"), "attribute name of 33 characters"},
      {withAttribute("attr:a,DD,1;"), "unknown attribute letter"},
      {withAttribute("attr:a,,1;"), "unknown attribute letter"},
      {withAttribute("attr:a,d,1;"), "unknown attribute letter"},
      {withAttribute("attr:a,D,0;"), "size is not a number from 1 to 4096"},
      {withAttribute("attr:a,D,4097;"), "size is not a number from 1 to 4096"},
      {withAttribute("attr:a,D,-1;"), "size is not a number from 1 to 4096"},
      {withAttribute("attr:a,D,;"), "size is not a number from 1 to 4096"},
      {withAttribute("attr:a,D,1x;"), "size is not a number from 1 to 4096"},
      {withAttribute("attr:a,D,99999999999;"), "size is not a number from 1 to 4096"},
      {withAttribute("attr:a\nb,D,1;"), "attribute name holds a control character"},
      {withAttribute(std::string("attr:a,D,1,x\0y;", 15)), "a part holds a zero byte"},
  };
  for (const auto& each : cases) EXPECT_THAT(errorOf(each.text), HasSubstr(each.error));
}

TEST(RegistrationError, ShowsALongOrHostileClauseSafely) {
  const std::string error = errorOf("appl:\x1b[2J\n" + std::string(5000, 'a') + ",KEY;");
  EXPECT_THAT(error, HasSubstr("<appl:?[2J?aaa"));
  EXPECT_THAT(error, HasSubstr("...>: "));
  EXPECT_LT(error.size(), 300u);
}

// ---- The message -----------------------------------------------------------------------------

// The fields of a message as "type:text", fixed-width ones in decimal.
std::vector<std::string> fieldsOf(char* message) {
  std::vector<std::string> fields;
  ZOR0_FieldCursor cursor(message, ZOR0_MessageLength(message));
  while (!cursor.atEnd()) {
    void* value = nullptr;
    ZORA_Long length = 0;
    const short type = ZOR0_ExtractDataField(&cursor, &value, &length, nullptr);
    std::string text(static_cast<const char*>(value), static_cast<std::size_t>(length));
    if (type == DCH_requestType) {
      short code = 0;
      std::memcpy(&code, value, sizeof code);
      text = std::to_string(code);
    }
    fields.push_back(std::to_string(type) + ":" + text);
  }
  return fields;
}

TEST(RegistrationMessage, HoldsRequestNameKeyAndShortestText) {
  char* message = nullptr;
  ASSERT_EQ(ZORP_ConstructDPregisterBuffer(" appl: A,KEY; group: g; attr: a,D,1,;", &message), 1);
  using namespace std::string_literals;
  EXPECT_THAT(fieldsOf(message),
              ElementsAre("16:4112", "32:A\0"s, "33:KEY\0"s, "18:appl:A,KEY;group:g;attr:a,D,1;"));
}

TEST(RegistrationMessage, StaysWhenTheNextTextIsRefused) {
  char* message = nullptr;
  ASSERT_EQ(ZORP_ConstructDPregisterBuffer(wholeText, &message), 1);
  char* other = nullptr;
  EXPECT_EQ(ZORP_ConstructDPregisterBuffer("nonsense", &other), 0);
  EXPECT_EQ(other, nullptr);
  EXPECT_EQ(fieldsOf(message).size(), 4u);
}

TEST(RegistrationMessage, EachThreadHasItsOwn) {
  char* mine = nullptr;
  ASSERT_EQ(ZORP_ConstructDPregisterBuffer(wholeText, &mine), 1);
  std::thread([] {
    char* other = nullptr;
    EXPECT_EQ(ZORP_ConstructDPregisterBuffer("appl:B,KEY;group:g;attr:a,D,1;", &other), 1);
  }).join();
  EXPECT_EQ(fieldsOf(mine).back(), "18:" + std::string(wholeText));
}

TEST(RegistrationMessage, ErrorLinesNameTheClause) {
  const TraceCapture trace("0x80");
  char* message = nullptr;
  EXPECT_EQ(ZORP_ConstructDPregisterBuffer("appl:HOSTMON,HMN;type:SOCK;group:load;attr:load1,Q,4;",
                                           &message),
            0);
  EXPECT_THAT(trace.texts(),
              ElementsAre("Error: registration clause 4 <attr:load1,Q,4>: unknown attribute "
                          "letter\n"));
}

TEST(RegistrationMessage, NullIsRefused) {
  const TraceCapture trace("0x80");
  char* message = nullptr;
  EXPECT_EQ(ZORP_ConstructDPregisterBuffer(nullptr, &message), 0);
  EXPECT_THAT(trace.texts(), ElementsAre("Error: registration text is NULL\n"));
}

// A text whose message has `size` bytes: 4 of length, 8 of request, 8 of name, 10 of key, 6 of
// header.
std::string textForMessageOf(std::size_t size) {
  const std::string start = "appl:A,KEY;group:g;attr:a,D,1,";
  return start + std::string(size - 36 - start.size() - 1, 'h') + ";";
}

TEST(RegistrationMessage, HoldsAtMostWhatTheServerReads) {
  const TraceCapture trace("0x80");
  char* message = nullptr;
  ASSERT_EQ(ZORP_ConstructDPregisterBuffer(textForMessageOf(4096).c_str(), &message), 1);
  EXPECT_EQ(ZOR0_MessageLength(message), 4096u);
  EXPECT_THAT(trace.texts(), IsEmpty());
  EXPECT_EQ(ZORP_ConstructDPregisterBuffer(textForMessageOf(4097).c_str(), &message), 0);
  EXPECT_THAT(trace.texts(),
              ElementsAre("Error: registration message of 4097 bytes is over 4096 bytes\n"));
}

}  // namespace
