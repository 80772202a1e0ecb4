// What dp_online makes of an answer: a status, and a handle.
#include "fuzz/support/client_run.h"
#include "fuzz/support/require.h"
#include "zordchcl/zordchcl.h"

using namespace fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setUpClient();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  constexpr ZORA_Long missingField = 2;
  Input input(bytes, count);
  ClientRun run(&input);
  ZORA_Long status = untouched;
  ZORA_Long handle = untouched;
  const int result = dp_online(&status, &handle, "HOSTMON", "load", "host1");

  const std::optional<std::string> message = run.message();
  StatusOutcome expected = expectedStatus(message, missingField);
  ZORA_Long expectedHandle = untouched;
  if (expected.result == 0) {
    FieldModel fields(*message);
    fields.next();
    const std::optional<ZORA_Long> found = fields.nextLong(DCH_handle);
    if (found)
      expectedHandle = *found;
    else
      expected = {1, missingField};
  }
  require(result == expected.result, "the result that the answer calls for");
  require(status == expected.status, "the status that the answer calls for");
  require(handle == expectedHandle, "the handle that the answer calls for");
  return 0;
}
