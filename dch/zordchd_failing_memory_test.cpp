// Each time that the real program, or a library of it, asks for memory there is none once, while
// clients use it: it ends with a sentence before it is ready, or it goes on and loses nothing that
// it acknowledged.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>

#include "dch/testkit/failing_memory.h"
#include "dch/testkit/notify_socket.h"
#include "dch/testkit/server_process.h"
#include "dch/testkit/server_under_fault.h"

namespace dch::testkit {
namespace {

// In a file that is mapped.
class SharedPlan {
 public:
  explicit SharedPlan(const std::string& path)
      : _file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (_file < 0 || ftruncate(_file, sizeof(MemoryPlan)) != 0)
      throw std::runtime_error("no file to share");
    void* const shared =
        mmap(nullptr, sizeof(MemoryPlan), PROT_READ | PROT_WRITE, MAP_SHARED, _file, 0);
    if (shared == MAP_FAILED) throw std::runtime_error("no memory to share");
    _plan = new (shared) MemoryPlan{};
  }
  ~SharedPlan() {
    munmap(_plan, sizeof *_plan);
    close(_file);
  }
  SharedPlan(const SharedPlan&) = delete;
  SharedPlan& operator=(const SharedPlan&) = delete;

  MemoryPlan* operator->() { return _plan; }
  MemoryPlan& operator*() { return *_plan; }

 private:
  const int _file;
  MemoryPlan* _plan;
};

struct Requests {
  std::uint64_t untilReady = 0;
  std::uint64_t all = 0;
  std::uint64_t refused = 0;
};

class ZordchdFailingMemoryTest : public ::testing::TestWithParam<unsigned> {
 protected:
  // From the request of that number on so many find none; 0 for none.
  Requests run(std::uint64_t first, std::uint64_t refusals) {
    SCOPED_TRACE("no memory for " + std::to_string(first) + ", " + std::to_string(refusals) +
                 " time(s)");
    new (&*_plan) MemoryPlan{0, 0, first, refusals};
    Requests requests;
    const bool isReady = _server.run(serverPath(), {},
                                     {{"LD_PRELOAD", FAILING_MEMORY_PATH},
                                      {"ZORD410_FAILING_MEMORY", _server.path("plan")},
                                      {"NOTIFY_SOCKET", _manager.name()}},
                                     [&] { requests.untilReady = _plan->asked; });
    requests.all = _plan->asked;
    if (!isReady) requests.untilReady = requests.all;
    requests.refused = _plan->refused;
    _manager.empty();
    return requests;
  }

  const ServerUnderFault _server;
  SharedPlan _plan{_server.path("plan")};
  const NotifySocket _manager{_server.path("notify")};
};

// With ZORD410_FAILING_MEMORY=all each request for memory, with a number that one, otherwise some
// of them, spread evenly; more of those of a server that is ready than of those before.
TEST_P(ZordchdFailingMemoryTest, NoRequestForMemoryHarmsItByFailing) {
  const char* const given = std::getenv("ZORD410_FAILING_MEMORY");
  const bool isEach = given != nullptr;
  if (isEach && std::string(given) != "all") {
    EXPECT_GT(run(std::strtoull(given, nullptr, 10), GetParam()).refused, 0u);
    return;
  }
  const Requests usual = run(0, 0);
  ASSERT_GT(usual.untilReady, 0u);
  ASSERT_GT(usual.all, usual.untilReady);
  const auto walk = [&](std::uint64_t first, std::uint64_t end, std::uint64_t wanted) {
    const std::uint64_t step = isEach ? 1 : std::max<std::uint64_t>(1, (end - first) / wanted);
    std::uint64_t refused = 0;
    for (std::uint64_t number = first; number < end; number += step)
      refused += run(number, GetParam()).refused;
    return refused;
  };
  const std::uint64_t before = walk(1, usual.untilReady, 40);
  const std::uint64_t after = walk(usual.untilReady, usual.all, 160);
  EXPECT_GT(before, 0u);
  EXPECT_GT(after, 0u);
  std::cout << usual.untilReady << " requests for memory until it is ready, "
            << usual.all - usual.untilReady << " from then on; refused: " << before << " and "
            << after << '\n';
}

INSTANTIATE_TEST_SUITE_P(InARow, ZordchdFailingMemoryTest, ::testing::Values(1u, 20u));

}  // namespace
}  // namespace dch::testkit
