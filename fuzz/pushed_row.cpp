// What dc_waitOnData makes of a row that is pushed to it, and of an interrupt.
#include <algorithm>
#include <memory>

#include "fuzz/support/client_run.h"
#include "fuzz/support/require.h"
#include "zordchcl/zordchcl.h"

using namespace fuzz;

namespace {

constexpr int delivered = 0;
constexpr int failed = 1;
constexpr int cancelled = -1;

struct Outcome {
  int result;
  std::string_view bytes;  // at the start of the caller's buffer; the rest stays as it was
};

Outcome expectedOutcome(const ClientRun& run, const std::optional<std::string>& message,
                        std::size_t room) {
  if (room == 0) return {failed, ""};
  if (!run.hasDatagrams()) return {cancelled, std::string_view(*run.interrupt()).substr(0, room)};
  if (!message || message->size() > room) return {failed, ""};
  return {delivered, *message};
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setUpClient();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  constexpr std::size_t mostRoom = 0x7fff;
  Input input(bytes, count);
  const std::size_t room = input.takeNumber() & mostRoom;
  ClientRun run(&input);
  void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
  require(handle != nullptr, "a subscription");
  // Exactly of its size, so that a byte too many is found.
  const std::unique_ptr<char[]> buffer(new char[room]);
  std::fill_n(buffer.get(), room, '#');
  const int result = dc_waitOnData(handle, buffer.get(), static_cast<short>(room));

  const std::optional<std::string> message = run.message();
  const Outcome expected = expectedOutcome(run, message, room);
  require(result == expected.result, "the result that the row calls for");
  const std::string_view taken(buffer.get(), room);
  require(taken.substr(0, expected.bytes.size()) == expected.bytes, "the row as it came");
  require(taken.find_first_not_of('#', expected.bytes.size()) == std::string_view::npos,
          "nothing behind the row");
  require(dc_waitOnDataDestroy(handle) == result, "the result stays that of the wait");
  return 0;
}
