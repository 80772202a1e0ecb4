// What dc_waitForActionResults makes of an answer.
#include "fuzz/support/client_run.h"
#include "fuzz/support/require.h"
#include "zordchcl/zordchcl.h"

using namespace fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setUpClient();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  constexpr ZORA_Long noResult = -1;
  Input input(bytes, count);
  ClientRun run(&input);
  const ZORA_Long result = dc_waitForActionResults(42);

  const StatusOutcome expected = expectedStatus(run.message(), noResult);
  require(result == (expected.result == 0 ? expected.status : noResult),
          "the result that the answer calls for");
  return 0;
}
