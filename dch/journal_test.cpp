#include "dch/journal.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "dch/service/event_log.h"
#include "dch/service/log_output.h"
#include "dch/testkit/log_pipe.h"

namespace dch {
namespace {

std::string numbersOf(int descriptor) {
  struct stat status {};
  fstat(descriptor, &status);
  return std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
}

void takeForTheJournal(int descriptor) {
  setenv("JOURNAL_STREAM", numbersOf(descriptor).c_str(), 1);
}

TEST(JournalTest, IsWhatItsVariableNames) {
  ::testing::internal::CaptureStderr();
  unsetenv("JOURNAL_STREAM");
  EXPECT_FALSE(isJournal(STDERR_FILENO));
  for (const char* other : {"", "8:1", "journal"}) {
    setenv("JOURNAL_STREAM", other, 1);
    EXPECT_FALSE(isJournal(STDERR_FILENO)) << other;
  }
  takeForTheJournal(STDERR_FILENO);
  EXPECT_TRUE(isJournal(STDERR_FILENO));
  EXPECT_FALSE(isJournal(STDIN_FILENO));
  EXPECT_FALSE(isJournal(-1));
  ::testing::internal::GetCapturedStderr();
}

TEST(JournalTest, HasThePriorityWithEachLine) {
  EXPECT_EQ(withPriority(Priority::error, "one\n"), "<3>one\n");
  EXPECT_EQ(withPriority(Priority::warning, "one\n\n  two\n"), "<4>one\n<4>\n<4>  two\n");
  EXPECT_EQ(withPriority(Priority::notice, ""), "");
  EXPECT_EQ(withPriority(Priority::info, "no end"), "<6>no end\n");
}

TEST(JournalTest, HasThePriorityOfWhatIsPrinted) {
  ::testing::internal::CaptureStderr();
  takeForTheJournal(STDERR_FILENO);
  printLines(Priority::error, withName("one\ntwo"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "<3>zordchd: one\n<3>zordchd: two\n");
}

TEST(JournalTest, HasThePriorityOfEventsAndReports) {
  testkit::LogPipe pipe;
  takeForTheJournal(pipe.descriptor());
  {
    LogOutput output(pipe.descriptor());
    const EventLog log(true, output);
    log.write("event");
    log.warn("warning");
    output.write(Priority::notice, "report\n  of lines\n");
  }
  const std::string text = pipe.content();
  EXPECT_TRUE(text.starts_with("<6>20")) << text;
  EXPECT_NE(text.find(" zordchd: event\n<4>20"), std::string::npos) << text;
  EXPECT_TRUE(text.ends_with(" zordchd: warning\n<5>report\n<5>  of lines\n")) << text;
}

TEST(JournalTest, AloneHasPriorities) {
  ::testing::internal::CaptureStderr();
  setenv("JOURNAL_STREAM", "8:1", 1);
  printLines(Priority::error, "zordchd: one\n");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "zordchd: one\n");
  testkit::LogPipe pipe;
  LogOutput(pipe.descriptor()).write(Priority::notice, "report\n");
  EXPECT_EQ(pipe.content(), "report\n");
}

}  // namespace
}  // namespace dch
