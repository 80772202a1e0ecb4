// While browsers ask each kind of question, and a provider sends: every call that the real program
// with its page makes of the system fails, once or some times in a row. The faults are put in by
// strace, into a server that runs.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>

#include <iostream>
#include <string>
#include <vector>

#include "dch/testkit/page_under_fault.h"
#include "dch/testkit/system_call_faults.h"
#include "tests/support/process.h"
#include "tests/support/temporary_files.h"

namespace dch::testkit {
namespace {

// Of those that come after so many of the same kind some are taken.
constexpr int few = 5;

// strace is no parent of the server.
void letAnyoneTrace() {
  prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);
}

class ZordchdWebFailingCallsTest : public ::testing::TestWithParam<SystemCall> {
 protected:
  // Asks while the calls from that number on fail, so many. Returns whether there were any.
  bool askWithout(const PageQuestion& question, int number, int failures) {
    const std::string error = GetParam().error(_asked++);
    const std::string call = GetParam().name;
    SCOPED_TRACE(call + ' ' + std::to_string(number) + ' ' + error + ' ' + question.name);
    const std::string log = _folder.path() + "/log";
    Process::Arguments arguments = faultArguments(call, error, number, failures, log);
    arguments.insert(arguments.end(), {"-p", std::to_string(_page.processId())});
    Process tracer("strace", arguments);
    tracer.waitForError("attached");
    _page.ask(question);
    tracer.signal(SIGTERM);
    tracer.finish();
    _page.expectRight(question);
    return hasFailed(log);
  }

  const TemporaryFolder _folder;
  PageUnderFault _page{{}, letAnyoneTrace};
  std::size_t _asked = 0;
};

TEST_P(ZordchdWebFailingCallsTest, NoneOfThemHarmsIt) {
  if (!canTrace()) GTEST_SKIP() << "strace cannot trace here";
  int faults = 0;
  for (const PageQuestion& question : pageQuestions())
    for (const int failures : {1, 20})
      for (int number = 1; askWithout(question, number, failures) && !HasFailure();
           number += 1 + number / few)
        ++faults;
  EXPECT_GT(faults, 0);
  _page.expectUnharmed();
  std::cout << faults << " faults: " << _page.summary() << '\n';
}

// What the page calls the system for. Not among them: write, by which threads wake each other and
// which an eventfd does not refuse; timerfd_settime, whose failures cost as long as the alarms are
// set for; fcntl, by which the store gives its locks back, and which does not fail at that.
const std::vector<SystemCall> pageCalls{
    {"accept4", {"EMFILE", "ECONNABORTED", "ENOBUFS", "EINTR"}},
    {"getsockname", {"ENOBUFS"}},
    {"setsockopt", {"ENOBUFS", "EPERM", "ENOPROTOOPT"}},
    {"ioctl", {"EINVAL"}},
    {"recvmsg", {"ENOMEM", "EINTR", "ECONNRESET"}},
    {"sendmsg", {"ENOBUFS", "EPIPE", "EINTR", "ECONNRESET"}},
    {"shutdown", {"ENOTCONN", "ENOBUFS"}},
    {"epoll_ctl", {"ENOMEM", "ENOSPC"}},
    {"epoll_wait", {"EINTR", "EINVAL"}},
    {"read", {"EINTR", "EIO"}},
    {"newfstatat", {"EIO", "ENOMEM"}},
    {"pread64", {"EIO", "EINTR"}},
};

INSTANTIATE_TEST_SUITE_P(Each, ZordchdWebFailingCallsTest, ::testing::ValuesIn(pageCalls),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace dch::testkit
