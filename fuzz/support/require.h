// require.h: how a fuzz target says that something is wrong.
#ifndef FUZZ_SUPPORT_REQUIRE_H
#define FUZZ_SUPPORT_REQUIRE_H

#include <cstdio>
#include <cstdlib>

namespace fuzz {

// Ends the process when the condition does not hold; the fuzzer then keeps the input.
inline void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "\nrequirement failed: %s\n", what);
  std::abort();
}

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_REQUIRE_H
