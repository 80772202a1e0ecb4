#include "dch/web/questions.h"

#include <gtest/gtest.h>

#include <future>
#include <new>

#include "dch/testkit/loop_thread.h"

namespace dch {
namespace {

using Clock = std::chrono::steady_clock;

// The test is the channel's thread.
class QuestionsTest : public testing::Test {
 protected:
  // Returns the answer that the question will have.
  std::future<int> ask() {
    auto answer = std::make_shared<std::promise<int>>();
    _web.call([&] {
      _questions.ask([answer](const std::shared_ptr<const int>& given) {
        answer->set_value(given != nullptr ? *given : -1);
      });
    });
    return answer->get_future();
  }

  void waitForQuestion() { _asked.get_future().wait(); }

  void answer(std::unique_ptr<int> answer, Clock::duration cost = {}) {
    _asked = {};
    _enquiry.answer(std::move(answer), cost);
    _web.call([this] { _questions.collect(); });
  }

  Enquiry<int> _enquiry;
  std::promise<void> _asked;
  EventLoop _loop;
  Questions<int> _questions{_loop, _enquiry, [this] { _asked.set_value(); }};
  testkit::LoopThread _web{_loop};
};

TEST_F(QuestionsTest, WhoHasNoMemoryForTheAnswerIsToldThatThereIsNoneAndTheOthersTheirs) {
  std::promise<bool> isTold;
  _web.call([&] {
    _questions.ask([&](const std::shared_ptr<const int>& given) {
      if (given != nullptr) throw std::bad_alloc();
      isTold.set_value(true);
    });
  });
  waitForQuestion();
  answer(std::make_unique<int>(1));
  EXPECT_TRUE(isTold.get_future().get());
  std::future<int> next = ask();
  waitForQuestion();
  answer(std::make_unique<int>(2));
  EXPECT_EQ(next.get(), 2);
}

TEST_F(QuestionsTest, WhoAsksWhileAnAnswerIsMadeGetsTheNextOne) {
  std::future<int> first = ask();
  waitForQuestion();
  EXPECT_TRUE(_enquiry.isAsked());
  std::future<int> second = ask();
  std::future<int> third = ask();
  answer(std::make_unique<int>(1));
  EXPECT_EQ(first.get(), 1);
  waitForQuestion();
  answer(std::make_unique<int>(2));
  EXPECT_EQ(second.get(), 2);
  EXPECT_EQ(third.get(), 2);
  EXPECT_FALSE(_enquiry.isAsked());
}

TEST_F(QuestionsTest, TheAnswersTakeATwentiethOfTheTime) {
  const Clock::time_point begin = Clock::now();
  std::future<int> first = ask();
  waitForQuestion();
  answer(std::make_unique<int>(1), std::chrono::milliseconds(10));
  std::future<int> second = ask();
  waitForQuestion();
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(200));
  answer(std::make_unique<int>(2));
  EXPECT_EQ(second.get(), 2);
}

TEST_F(QuestionsTest, WithoutMemoryThereIsNoAnswer) {
  std::future<int> first = ask();
  waitForQuestion();
  answer(nullptr);
  EXPECT_EQ(first.get(), -1);
}

TEST(EnquiryTest, AnAnswerIsMadeInTheMemoryOfOneThatIsNotNeededAnyMore) {
  Enquiry<int> enquiry;
  const int* before = nullptr;
  for (int round = 0; round < 10; ++round) {
    enquiry.ask();
    std::unique_ptr<int> made = enquiry.takeUsed();
    if (round > 0) {
      EXPECT_EQ(made.get(), before);
      EXPECT_EQ(*made, round - 1) << "with what was in it";
    }
    before = made.get();
    *made = round;
    enquiry.answer(std::move(made), {});
    ASSERT_TRUE(enquiry.isAnswered());
    EXPECT_EQ(*enquiry.take().answer, round);
  }
}

TEST(EnquiryTest, KeepsNoMoreMemoryThanAFew) {
  Enquiry<int> enquiry;
  std::vector<std::shared_ptr<const int>> held;
  for (int round = 0; round < 10; ++round) {
    enquiry.ask();
    enquiry.answer(enquiry.takeUsed(), {});
    held.push_back(enquiry.take().answer);
  }
  held.clear();  // the sanitizer sees what is not freed
  EXPECT_NE(enquiry.takeUsed(), nullptr);
}

}  // namespace
}  // namespace dch
