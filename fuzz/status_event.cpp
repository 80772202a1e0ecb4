// What dc_waitForDPStatus makes of a notification.
#include "fuzz/support/client_run.h"
#include "fuzz/support/require.h"
#include "zordchcl/zordchcl.h"

using namespace fuzz;

namespace {

// The line that a notification is told as, nothing for one with a field that is not as it should
// be.
std::optional<std::string> expectedLine(const std::optional<std::string>& message) {
  if (!message) return std::nullopt;
  FieldModel fields(*message);
  const auto application = fields.nextText(DCH_applName);
  if (!application) return std::nullopt;
  const auto group = fields.nextText(DCH_attrGroup);
  if (!group) return std::nullopt;
  const auto source = fields.nextText(DCH_sourceName);
  if (!source) return std::nullopt;
  const auto code = fields.next(DCH_requestType);
  if (!code) return std::nullopt;
  std::string line(application->substr(0, DCH_MAX_APPL_NAME));
  line += ',';
  line += group->substr(0, DCH_MAX_ATTR_GROUP);
  line += ',';
  line += source->substr(0, DCH_MAX_SOURCE_NAME);
  return line + ',' + std::to_string(static_cast<short>(numberIn(*code, 2)));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setUpClient();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  Input input(bytes, count);
  ClientRun run(&input);
  if (!run.hasDatagrams()) return 0;  // a wait without a limit
  void* const handle = dc_waitForDPStatusInitialize();
  require(handle != nullptr, "a subscription");
  const char* const line = dc_waitForDPStatus(handle);

  const std::optional<std::string> expected = expectedLine(run.message());
  require((line != nullptr) == expected.has_value(), "a line if the notification calls for one");
  if (line != nullptr) require(*expected == line, "the line that the notification calls for");
  require(dc_waitForDPStatusDestroy(handle) == (line == nullptr ? 1 : 0),
          "the result stays that of the wait");
  return 0;
}
