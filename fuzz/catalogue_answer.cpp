// What the three questions to the catalogue make of an answer.
#include <cstdlib>

#include "fuzz/support/client_run.h"
#include "fuzz/support/require.h"
#include "zordchcl/zordchcl.h"

using namespace fuzz;

namespace {

// The first field of the answer, if it is what it should be and not empty.
std::string expectedText(const std::optional<std::string>& message) {
  if (!message) return "";
  return std::string(FieldModel(*message).next(DCH_response).value_or(""));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setUpClient();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  using Question = int (*)(ZORA_Long*, char**, const char*, short);
  constexpr Question questions[] = {dc_getApplications, dc_getApplAttributes, dc_getApplHelp};
  Input input(bytes, count);
  const unsigned choice = input.takeByte();
  ClientRun run(&input);
  ZORA_Long length = untouched;
  char* text = nullptr;
  const int result =
      questions[choice % 3](&length, &text, "HOSTMON", static_cast<short>(choice >> 2));

  const std::string expected = expectedText(run.message());
  require(result == (expected.empty() ? 1 : 0), "the result that the answer calls for");
  require(length == static_cast<ZORA_Long>(expected.size()), "the length of the answer");
  require((text == nullptr) == expected.empty(), "a text if there is one");
  if (text == nullptr) return 0;
  require(std::string_view(text, expected.size() + 1) ==
              std::string_view(expected.c_str(), expected.size() + 1),
          "the text of the answer, and a zero");
  std::free(text);
  return 0;
}
