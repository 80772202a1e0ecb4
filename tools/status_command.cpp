#include "tools/status_command.h"

#include <sysexits.h>
#include <unistd.h>

#include <csignal>
#include <string_view>

#include "tools/common/control_thread.h"
#include "tools/common/failure.h"
#include "tools/common/output.h"
#include "tools/common/transport_check.h"
#include "tools/record_writer.h"
#include "tools/row_writer.h"
#include "zordchcl/messages.h"
#include "zordchcl/zordchcl.h"

namespace tools {
namespace {

using Record = std::vector<std::string>;

// The subscription, which ends with the object.
class StatusHandle {
 public:
  StatusHandle() : _handle(dc_waitForDPStatusInitialize()) {
    if (_handle == nullptr) throw Failure(EX_UNAVAILABLE, "cannot send to the DCH");
  }
  ~StatusHandle() { dc_waitForDPStatusDestroy(_handle); }
  StatusHandle(const StatusHandle&) = delete;
  StatusHandle& operator=(const StatusHandle&) = delete;

  std::string next() const {
    const char* const text = dc_waitForDPStatus(_handle);
    if (text == nullptr) throw Failure(EX_PROTOCOL, "the wait for a change of status failed");
    return text;
  }

 private:
  void* const _handle;
};

std::string changeOf(std::string_view code) {
  if (code == std::to_string(DCH_REQUEST_REGISTER)) return "registered";
  if (code == std::to_string(DCH_REQUEST_ONLINE)) return "online";
  if (code == std::to_string(DCH_REQUEST_OFFLINE)) return "offline";
  if (code == std::to_string(DCH_REQUEST_UNREGISTER)) return "unregistered";
  return std::string(code);
}

// Application, group, source and code. Commas inside names are not escaped, but the first two names
// of a registration have none: what is between them and the code is the source.
Record parse(const std::string& text) {
  const std::size_t first = text.find(',');
  const std::size_t second = text.find(',', first + 1);
  const std::size_t last = text.rfind(',');
  return {text.substr(0, first), text.substr(first + 1, second - first - 1),
          text.substr(second + 1, last - second - 1), text.substr(last + 1)};
}

}  // namespace

int followStatus(const StatusOptions& options) {
  std::signal(SIGPIPE, SIG_IGN);
  checkTransport();
  DCH_api_init();
  // The DCH drops a subscriber that is gone.
  const ControlThread control([](int) { _exit(EX_OK); });
  const auto writer = makeRecordWriter(options.format, {{"time", false, 24},
                                                        {"change", false, 12},
                                                        {"application", false, 20},
                                                        {"group", false, 12},
                                                        {"source"}});
  const StatusHandle handle;
  for (std::uint64_t changes = 0; !options.count || changes < *options.count; ++changes) {
    const Record change = parse(handle.next());
    const std::string time = formatTime(std::chrono::system_clock::now());
    if (!printLines(writer->format({time, changeOf(change[3]), change[0], change[1], change[2]})))
      break;
  }
  return EX_OK;
}

}  // namespace tools
