// Each time that the real program, or a library of it, asks for memory there is none once, while
// clients use it: it ends with a sentence before it is ready, or it goes on and loses nothing that
// it acknowledged.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string>

#include "dch/testkit/memory_plan_file.h"
#include "dch/testkit/notify_socket.h"
#include "dch/testkit/server_process.h"
#include "dch/testkit/server_under_fault.h"

namespace dch::testkit {
namespace {

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
    Process::Environment environment = _plan.environment();
    environment["NOTIFY_SOCKET"] = _manager.name();
    Requests requests;
    const bool isReady =
        _server.run(serverPath(), {}, environment, [&] { requests.untilReady = _plan->asked; });
    requests.all = _plan->asked;
    if (!isReady) requests.untilReady = requests.all;
    requests.refused = _plan->refused;
    _manager.empty();
    return requests;
  }

  const ServerUnderFault _server;
  MemoryPlanFile _plan{_server.path("plan")};
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
