// test_client.h: what the tests of the client share.
#ifndef ZORDCHCL_TEST_CLIENT_H
#define ZORDCHCL_TEST_CLIENT_H

#include <string>

#include "tests/support/bytes.h"
#include "zordchcl/test_lines.h"
#include "zordchcl/zordchcl.h"

// What a variable holds until a request writes to it.
constexpr ZORA_Long untouched = 4711;

inline std::string letters(std::size_t count) {
  return std::string(count, 'n');
}

// An answer whose first field is an application name, and one without a field.
inline std::string wrongAnswer() {
  return bytesOf("0000000c 0020 00000002 'A' 00");
}
inline std::string emptyAnswer() {
  return bytesOf("00000004");
}

#endif  // ZORDCHCL_TEST_CLIENT_H
