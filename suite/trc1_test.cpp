// Trace points, events and records.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>

#include "suite/trc1_test.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

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

TEST(TraceAddress, ShowsTheBytesInHexadecimal) {
  const Sink sink;
  const unsigned char bytes[] = {0x02, 0x00, 0x07, 0x7F, 0xAB};
  TRC1_PrintAddress(&ipcRead, 1, "label", bytes, 5);
  TRC1_PrintAddress(&ipcRead, 1, "label", bytes, 0);
  TRC1_PrintAddress(&ipcRead, 1, "label", nullptr, 16);
  EXPECT_THAT(sink.texts, ElementsAre("label: clientAddr <5<0200077fab>>\n",
                                      "label: clientAddr <0<>>\n", "label: clientAddr <16<>>\n"));
}

TEST(TraceAddress, ReadsNoFurtherThanAnAddressReaches) {
  const Sink sink;
  const std::string bytes(256, '\x11');  // as many as the server's queue keeps of one
  TRC1_PrintAddress(&ipcRead, 1, "label", bytes.data(), 1000000);
  EXPECT_EQ(sink.texts.at(0),
            "label: clientAddr <1000000<" + std::string(2 * bytes.size(), '1') + ">>\n");
}

// ---- Records ---------------------------------------------------------------------------------

// What stands before the component in the records of this thread.
std::string timeAndThread() {
  return "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{6}Z " +
         std::to_string(getpid()) + "[.]" + std::to_string(gettid()) + " ";
}

TEST(TraceRecord, HasTimeProcessThreadComponentFunctionAndText) {
  const TraceFile file;
  TRC1_Printf(&dpOnline, 42, "status <%d>\n", 5);
  EXPECT_THAT(file.content(), MatchesRegex(timeAndThread() + "ZORDC410 dp_online:42 status <5>\n"));
}

TEST(TraceRecord, StatesTheTimeInUtc) {
  setenv("TZ", "Pacific/Auckland", 1);
  tzset();
  const TraceFile file;
  // std::time() may be a few milliseconds behind the clock that a record shows.
  using Clock = std::chrono::system_clock;
  const std::time_t before = Clock::to_time_t(Clock::now());
  TRC1_Printf(&dpOnline, 1, "x");
  const std::time_t after = Clock::to_time_t(Clock::now());
  std::tm calendar{};
  ASSERT_NE(strptime(file.content().c_str(), "%Y-%m-%dT%H:%M:%S", &calendar), nullptr);
  const std::time_t stated = timegm(&calendar);
  EXPECT_GE(stated, before);
  EXPECT_LE(stated, after);
}

TEST(TraceRecord, TakesItsTextVerbatim) {
  const TraceFile file;
  TRC1_Printf(&dpOnline, 1, "Error: FINISH ME UP!");
  TRC1_Printf(&dpOnline, 1, "two\n\n");
  EXPECT_THAT(file.content(),
              MatchesRegex(timeAndThread() + "ZORDC410 dp_online:1 Error: FINISH ME UP!" +
                           timeAndThread() + "ZORDC410 dp_online:1 two\n\n"));
}

TEST(TraceRecord, AppendsToWhatTheFileHolds) {
  const TraceFile file;
  std::ofstream(getenv("ZORA_TRACE_FILE")) << "before\n";
  TRC1_Printf(&dpOnline, 1, "after\n");
  EXPECT_THAT(file.content(), testing::StartsWith("before\n"));
  EXPECT_THAT(file.content(), testing::EndsWith("after\n"));
}

TEST(TraceRecord, GoesToStandardErrorWithoutAFile) {
  unsetenv("ZORA_TRACE_FILE");
  testing::internal::CaptureStderr();
  TRC1_Printf(&dpOnline, 1, "here\n");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(" dp_online:1 here\n"));
}

TEST(TraceRecord, GoesToStandardErrorWhenTheFileCannotBeWritten) {
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

// Replaces standard error by a socket that keeps the bounds of what was written at once.
class WriteBounds {
 public:
  WriteBounds() {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0) std::abort();
    _standardError = dup(STDERR_FILENO);
    dup2(pair[1], STDERR_FILENO);
    close(pair[1]);
    _reader = pair[0];
  }
  ~WriteBounds() {
    dup2(_standardError, STDERR_FILENO);
    close(_standardError);
    close(_reader);
  }

  std::string next() {
    std::string bytes(100000, '\0');
    const ssize_t count = recv(_reader, bytes.data(), bytes.size(), MSG_DONTWAIT);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
  }

 private:
  int _standardError;
  int _reader;
};

TEST(TraceRecord, IsOneWriteWhateverItsLength) {
  unsetenv("ZORA_TRACE_FILE");
  WriteBounds bounds;
  std::vector<std::string> written;
  for (const std::size_t length : {0u, 10u, 900u, 1000u, 1024u, 1100u, 50000u}) {
    const std::string text(length, 'x');
    TRC1_Printf(&dpOnline, 1, "<%s>", text.c_str());
    EXPECT_THAT(bounds.next(), testing::EndsWith(" dp_online:1 <" + text + ">"));
    EXPECT_EQ(bounds.next(), "");
  }
}

TEST(TraceRecord, EveryLengthAroundTheUsualSizeIsWhole) {
  const Sink sink;
  for (std::size_t length = 900; length < 1100; ++length)
    TRC1_Printf(&dpOnline, 1, "%s.", std::string(length, 'x').c_str());
  for (std::size_t i = 0; i < sink.texts.size(); ++i)
    ASSERT_EQ(sink.texts[i], std::string(900 + i, 'x') + ".");
  EXPECT_EQ(sink.texts.size(), 200u);
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

TEST(TraceFilter, KeepsRecordsFromTheFileAndNotFromASink) {
  const TraceFile file;
  TRC1_SetFilter(
      [](void* unwanted, const TRC1_Record& record) {
        return std::string(record.text, record.textLength) != static_cast<const char*>(unwanted);
      },
      const_cast<char*>("unwanted\n"));
  for (const char* text : {"first\n", "unwanted\n", "last\n"})
    TRC1_Printf(&dpOnline, 1, "%s", text);
  EXPECT_THAT(file.content(), HasSubstr(" first\n"));
  EXPECT_THAT(file.content(), testing::Not(HasSubstr("unwanted")));
  EXPECT_THAT(file.content(), testing::EndsWith(" last\n"));
  {
    const Sink sink;
    TRC1_Printf(&dpOnline, 1, "unwanted\n");
    EXPECT_THAT(sink.texts, ElementsAre("unwanted\n"));
  }
  TRC1_SetFilter(nullptr, nullptr);
  TRC1_Printf(&dpOnline, 1, "unwanted\n");
  EXPECT_THAT(file.content(), testing::EndsWith(" unwanted\n"));
}

// ---- errno -----------------------------------------------------------------------------------

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
