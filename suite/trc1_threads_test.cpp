// Tracing by several threads and processes at once.
#include <atomic>
#include <thread>

#include "suite/trc1_test.h"
#include "tests/support/process.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

void traced() {
  TRC1_FUNCTION("traced");
  TRC1_ERROR("Error: x\n");
  TRC1_DETAIL("detail\n");
  TRC1_LEAVE();
}

// Threads that trace until the object ends.
class TracingThreads {
 public:
  TracingThreads() {
    for (int i = 0; i < 3; ++i)
      _threads.emplace_back([this] {
        while (!_stop.load(std::memory_order_relaxed)) traced();
      });
  }
  ~TracingThreads() {
    _stop = true;
    for (std::thread& thread : _threads) thread.join();
  }

 private:
  std::atomic<bool> _stop{false};
  std::vector<std::thread> _threads;
};

TEST(TraceThreads, SeeARuleChangeThatHappenedBefore) {
  const Sink sink;
  const TracingThreads tracing;
  for (int round = 0; round < 200; ++round) {
    const unsigned mask = round % 2 == 0 ? 0x10 : 0x40;
    TRC1_Configure(mask == 0x10 ? "0x10" : "0x40");
    bool seen = false;
    std::thread([&] { seen = hasFlags(&ipcRead, mask) && hasFlags(&dpOnline, mask); }).join();
    ASSERT_TRUE(seen) << "round " << round;
  }
}

TEST(TraceThreads, WriteWholeRecords) {
  const TraceFile file;
  {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int thread = 0; thread < 4; ++thread)
      threads.emplace_back([thread] {
        for (int i = 0; i < 500; ++i)
          TRC1_Printf(&dpOnline, thread, "%s\n",
                      std::string(static_cast<std::size_t>(i), 'x').c_str());
      });
    for (std::thread& thread : threads) thread.join();
  }
  std::istringstream lines(file.content());
  std::string line;
  int count = 0;
  for (; std::getline(lines, line); ++count)
    ASSERT_THAT(line, MatchesRegex("[^ ]{27} [0-9]+[.][0-9]+ ZORDC410 dp_online:[0-3] x*"));
  EXPECT_EQ(count, 2000);
}

TEST(TraceFork, AChildTracesUnderItsOwnProcessId) {
  const TraceFile file;
  TRC1_Printf(&dpOnline, 1, "parent\n");
  Process child([] {
    TRC1_Printf(&dpOnline, 1, "child\n");
    return 0;
  });
  const std::string id = std::to_string(child.id());
  child.finish();
  EXPECT_THAT(file.content(), HasSubstr("Z " + id + "." + id + " ZORDC410 dp_online:1 child\n"));
}

TEST(TraceFork, AChildMayTraceWhateverTheParentsThreadsWereDoing) {
  const Sink sink;
  const TracingThreads tracing;
  const auto traceInChild = [] {
    TRC1_Configure("0xff");
    traced();
    return 0;
  };
  // A child that waits for a lock for ever is killed.
  for (int i = 0; i < 30; ++i) ASSERT_EQ(runInChild(traceInChild).exitStatus, 0);
}

}  // namespace
