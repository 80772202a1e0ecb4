// What a line of the trace looks like.
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <ctime>

#include "suite/trc1_test.h"

namespace {

using testing::MatchesRegex;

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

}  // namespace
