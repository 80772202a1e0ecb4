// test_outcome.h: a request of a provider's life, and what it must come to.
#ifndef ZORDCHCL_TEST_OUTCOME_H
#define ZORDCHCL_TEST_OUTCOME_H

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "tests/support/fake_transport.h"
#include "zordchcl/test_client.h"

// The beginning of every request that gets as far as being written.
inline Lines written(const std::string& request, int length) {
  return Lines{entryLine()} + writingLines(request, length);
}

// What one request does, given how its write and its read end.
struct Outcome {
  ZORA_Long result;
  ZORA_Long status;
  Lines trace;
  ZORA_Long handle = untouched;
};

struct Ends {
  std::deque<std::string> answers;
  std::optional<ZORA_Long> writeResult;
  ZORA_Long timeout = 30;
};

using Call = std::function<ZORA_Long(DCHclient&, ZORA_Long* status, ZORA_Long* handle)>;

inline void expectOutcome(const std::string& method, const Call& call, const Ends& ends,
                          const Outcome& expected) {
  expectTrace("DCHclient::" + method, [&] {
    FakedClient faked;
    faked.transport.answers = ends.answers;
    faked.transport.writeResult = ends.writeResult;
    faked.client._DCHtimeout = ends.timeout;
    ZORA_Long status = untouched;
    ZORA_Long handle = untouched;
    EXPECT_EQ(call(faked.client, &status, &handle), expected.result);
    EXPECT_EQ(status, expected.status);
    EXPECT_EQ(handle, expected.handle);
    EXPECT_EQ(faked.client._clientError, expected.result);
    EXPECT_EQ(faked.client._readBuffer, nullptr);
    for (const ZORA_Long wait : faked.transport.waits) EXPECT_EQ(wait, ends.timeout);
    return expected.trace;
  });
}

// The status that a caller would see while a request that failed before still waits.
inline ZORA_Long statusWhileWaiting(const Call& call, std::optional<ZORA_Long> writeResult = {}) {
  FakedClient faked;
  ZORA_Long status = untouched;
  ZORA_Long handle = untouched;
  ZORA_Long seen = untouched;
  faked.transport.writeResult = writeResult;
  faked.transport.whileReading = [&] { seen = status; };
  call(faked.client, &status, &handle);
  return seen;
}

#endif  // ZORDCHCL_TEST_OUTCOME_H
