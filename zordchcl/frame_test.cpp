// The frame of the exported functions stops what their callers could not catch.
#include "zordchcl/frame.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace zordchcl {
namespace {

TEST(Frame, AnExceptionBecomesAFailure) {
  EXPECT_EQ(guarded([]() -> ZORA_Long { throw std::runtime_error("no caller can catch it"); }), 1);
}

TEST(Frame, WhateverIsThrownBecomesAFailure) {
  EXPECT_EQ(guarded([]() -> ZORA_Long { throw 0; }), 1);
}

TEST(Frame, ANumberIsPassedOn) {
  EXPECT_EQ(guarded([] { return ZORA_Long{-7}; }), -7);
}

}  // namespace
}  // namespace zordchcl
