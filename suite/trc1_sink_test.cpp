// Where the trace goes.
#include "suite/trc1_test.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(TraceOutput, AppendsToWhatTheFileHolds) {
  const TraceFile file;
  std::ofstream(getenv("ZORA_TRACE_FILE")) << "before\n";
  TRC1_Printf(&dpOnline, 1, "after\n");
  EXPECT_THAT(file.content(), testing::StartsWith("before\n"));
  EXPECT_THAT(file.content(), testing::EndsWith("after\n"));
}

TEST(TraceOutput, GoesToStandardErrorWithoutAFile) {
  unsetenv("ZORA_TRACE_FILE");
  testing::internal::CaptureStderr();
  TRC1_Printf(&dpOnline, 1, "here\n");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(" dp_online:1 here\n"));
}

TEST(TraceOutput, GoesToStandardErrorWhenTheFileCannotBeWritten) {
  setenv("ZORA_TRACE_FILE", "/no such folder/trace", 1);
  testing::internal::CaptureStderr();
  TRC1_Printf(&dpOnline, 1, "first\n");
  TRC1_Printf(&dpOnline, 1, "second\n");
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_THAT(said,
              testing::StartsWith("ZORA_TRACE_FILE: cannot append to </no such folder/trace>"));
  EXPECT_THAT(said, HasSubstr(" dp_online:1 first\n"));
  EXPECT_THAT(said, HasSubstr(" dp_online:1 second\n"));
}

TEST(TraceSink, GivesWayToTheFileAgain) {
  const TraceFile file;
  {
    const Sink sink;
    TRC1_Printf(&dpOnline, 1, "to the sink");
    EXPECT_THAT(sink.texts, ElementsAre("to the sink"));
  }
  EXPECT_EQ(file.content(), "");
  TRC1_Printf(&dpOnline, 1, "to the file");
  EXPECT_THAT(file.content(), testing::EndsWith("to the file"));
}

}  // namespace
