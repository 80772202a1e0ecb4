#include "suite/cancellation.h"

#include <gtest/gtest.h>
#include <pthread.h>

namespace suite {
namespace {

bool canBeCancelled() {
  int state = PTHREAD_CANCEL_DISABLE;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
  pthread_setcancelstate(state, nullptr);
  return state == PTHREAD_CANCEL_ENABLE;
}

TEST(Cancellation, IsOffUntilTheOutermostObjectIsGone) {
  EXPECT_TRUE(canBeCancelled());
  {
    const CancellationOff outer;
    EXPECT_FALSE(canBeCancelled());
    {
      const CancellationOff inner;
      EXPECT_FALSE(canBeCancelled());
    }
    EXPECT_FALSE(canBeCancelled());
  }
  EXPECT_TRUE(canBeCancelled());
}

TEST(Cancellation, StaysOffForAThreadThatDidNotAllowIt) {
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  {
    const CancellationOff off;
    EXPECT_FALSE(canBeCancelled());
  }
  EXPECT_FALSE(canBeCancelled());
}

}  // namespace
}  // namespace suite
