// The scope of a request stops what the callers of the exported functions could not catch.
#include "zordchcl/request_scope.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

namespace zordchcl {
namespace {

TEST(RequestScope, AnExceptionBecomesAFailure) {
  EXPECT_EQ(guarded([]() -> ZORA_Long { throw std::runtime_error("no caller can catch it"); }), 1);
}

TEST(RequestScope, WantOfMemoryBecomesAFailure) {
  EXPECT_EQ(guarded([]() -> ZORA_Long { throw std::bad_alloc(); }), 1);
}

TEST(RequestScope, ANumberIsPassedOn) {
  EXPECT_EQ(guarded([] { return ZORA_Long{-7}; }), -7);
}

}  // namespace
}  // namespace zordchcl
