// What the requests that are answered with a status alone make of an answer.
#include "fuzz/support/client_run.h"
#include "fuzz/support/require.h"
#include "zordchcl/zordchcl.h"

using namespace fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setUpClient();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  Input input(bytes, count);
  const unsigned request = input.takeByte() % 3;
  ClientRun run(&input);
  ZORA_Long status = untouched;
  int result = 0;
  if (request == 0)
    result = dp_register(&status, "appl:HOSTMON,HMN;group:load;attr:load1,D,16;");
  else if (request == 1)
    result = dp_unregister(&status, "HOSTMON");
  else
    result = dp_offline(&status, 815);

  const StatusOutcome expected = expectedStatus(run.message(), request == 0 ? 2 : 1);
  require(result == expected.result, "the result that the answer calls for");
  require(status == expected.status, "the status that the answer calls for");
  return 0;
}
