// What dp_data and dp_actionData make of the acknowledgement of a row.
#include "fuzz/support/client_run.h"
#include "fuzz/support/require.h"
#include "zordchcl/zordchcl.h"

using namespace fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setUpClient();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  constexpr ZORA_Long badArgument = 1;
  Input input(bytes, count);
  const unsigned choice = input.takeByte();
  ClientRun run(&input);
  ZORA_Long status = untouched;
  char* row = nullptr;
  ZORA_Long size = 0;
  require(dp_formatData(&status, &row, &size, "load1", "0.25", 4, 'D') == 0, "a row");
  const auto retries = static_cast<short>(choice >> 1);
  const int result = (choice & 1) != 0 ? dp_actionData(&status, 815, 17, &row, 1, retries)
                                       : dp_data(&status, 815, 17, &row);

  const StatusOutcome expected = expectedStatus(run.message(), badArgument);
  require(result == expected.result, "the result that the answer calls for");
  require(status == expected.status, "the status that the answer calls for");
  require(row == nullptr, "the row is freed whatever the answer was");
  return 0;
}
