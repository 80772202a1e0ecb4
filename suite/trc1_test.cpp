// Trace points and events.
#include <cerrno>

#include "suite/trc1_test.h"

namespace {

using testing::ElementsAre;

int evaluations = 0;
int evaluated() {
  return ++evaluations;
}

int traced(int value) {
  TRC1_FUNCTION("traced");
  TRC1_ERROR("Error: %d\n", value);
  TRC1_DETAIL("detail %d\n", evaluated());
  TRC1_STORAGE("storage\n");
  TRC1_FLOW("no line end");
  TRC1_RETURN(value);
}

TEST(TracePoint, WritesUnderItsClassAlone) {
  const Sink sink;
  TRC1_Configure("0x80");
  traced(1);
  TRC1_Configure("0x02");
  traced(2);
  TRC1_Configure("0x01");
  traced(3);
  EXPECT_THAT(sink.texts, ElementsAre("Error: 1\n", "storage\n", "no line end"));
}

TEST(TracePoint, DoesNotEvaluateItsArgumentsWhenOff) {
  const Sink sink;
  TRC1_Configure("0xEF");
  traced(1);
  EXPECT_EQ(evaluations, 0);
  TRC1_Configure("0x10");
  traced(1);
  EXPECT_EQ(evaluations, 1);
}

TEST(TracePoint, TakesItsFlagsOnceForTheWholeCall) {
  const Sink sink;
  TRC1_Configure("0x10");
  [] {
    TRC1_QUIET_FUNCTION("changing");
    TRC1_Configure("0");
    TRC1_DETAIL("still on\n");
  }();
  EXPECT_THAT(sink.texts, ElementsAre("still on\n"));
}

TEST(TracePoint, NamesItsFunctionAndLine) {
  const Sink sink;
  TRC1_Configure("0x10");
  [] {
    TRC1_QUIET_FUNCTION("someFunction");
    TRC1_DETAIL("x");
  }();
  const std::string line = std::to_string(__LINE__ - 2);
  EXPECT_THAT(sink.sources, ElementsAre("ZORD410 zordsock/someFunction:" + line));
}

TEST(TraceEvent, ShowsEntriesAndExits) {
  const Sink sink;
  TRC1_Configure("0x40");
  traced(-7);
  [] {
    TRC1_FUNCTION("withoutValue");
    TRC1_LEAVE();
  }();
  [] {
    TRC1_FUNCTION("withText");
    TRC1_RETURN("some text");
  }();
  EXPECT_THAT(sink.texts, ElementsAre("<<Entry>>\n", "<<Exit: -7>>\n", "<<Entry>>\n", "<<Exit>>\n",
                                      "<<Entry>>\n", "<<Exit: some text>>\n"));
}

TEST(TraceEvent, ShowsNullTextsAndPointers) {
  const Sink sink;
  TRC1_Event(&ipcRead, 1, TRC1_EXIT_VALUE, static_cast<const char*>(nullptr));
  TRC1_Event(&ipcRead, 1, TRC1_EXIT_VALUE, reinterpret_cast<const void*>(0x1234));
  EXPECT_THAT(sink.texts, ElementsAre("<<Exit: (null)>>\n", "<<Exit: 0x1234>>\n"));
}

TEST(TraceErrno, IsUntouchedByEveryCall) {
  setenv("ZORA_TRACE_FILE", "/no such folder/trace", 1);
  testing::internal::CaptureStderr();
  errno = 77;
  TRC1_Configure("a=bad,0xff");
  EXPECT_EQ(errno, 77);
  traced(1);
  EXPECT_EQ(errno, 77);
  TRC1_PrintAddress(&ipcRead, 1, "label", "abcd", 4);
  EXPECT_EQ(errno, 77);
  TRC1_SetSink(nullptr, nullptr);
  EXPECT_EQ(errno, 77);
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
