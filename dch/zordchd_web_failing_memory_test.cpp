// While browsers ask each kind of question, and a provider sends: each time that the real program
// with its page, or a library of it, asks for memory there is none, once or some times in a row.
#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>
#include <string>
#include <tuple>

#include "dch/testkit/memory_plan_file.h"
#include "dch/testkit/page_under_fault.h"
#include "tests/support/temporary_files.h"

namespace dch::testkit {
namespace {

class ZordchdWebFailingMemoryTest
    : public ::testing::TestWithParam<std::tuple<PageQuestion, unsigned>> {
 protected:
  // Whether any were refused.
  bool askWithout(std::uint64_t number) {
    SCOPED_TRACE("no memory for " + std::to_string(number));
    const auto& [question, refusals] = GetParam();
    const std::uint64_t before = _plan->refused;
    _plan->firstRefused = _plan->asked + number;
    _plan->refusals = refusals;
    _page.ask(question);
    _plan->refusals = 0;
    _page.expectRight(question);
    return _plan->refused > before;
  }

  const TemporaryFolder _folder;
  MemoryPlanFile _plan{_folder.path() + "/plan"};
  PageUnderFault _page{_plan.environment()};
};

// What other threads ask for meanwhile makes the number that a question takes differ.
TEST_P(ZordchdWebFailingMemoryTest, NoRequestForMemoryHarmsItByFailing) {
  constexpr int manyWithout = 10;
  std::uint64_t number = 0;
  for (int without = 0; without < manyWithout && !HasFailure(); ++without)
    while (askWithout(++number) && !HasFailure()) without = 0;
  EXPECT_GT(number, manyWithout + 10);
  _page.expectUnharmed();
  std::cout << number - manyWithout << " requests for memory: " << _page.summary() << '\n';
}

INSTANTIATE_TEST_SUITE_P(InARow, ZordchdWebFailingMemoryTest,
                         ::testing::Combine(::testing::ValuesIn(pageQuestions()),
                                            ::testing::Values(1u, 20u)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) + '_' +
                                  std::to_string(std::get<1>(test.param));
                         });

}  // namespace
}  // namespace dch::testkit
