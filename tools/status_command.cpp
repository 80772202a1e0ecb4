#include "tools/status_command.h"

#include <sysexits.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <iostream>
#include <mutex>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "tools/common/control_thread.h"
#include "tools/common/failure.h"
#include "tools/common/output.h"
#include "tools/common/transport_check.h"
#include "tools/record_writer.h"
#include "tools/row_writer.h"
#include "tools/subscription_sender.h"
#include "tools/subscription_upkeep.h"
#include "zordchcl/messages.h"
#include "zordchcl/zordchcl.h"

namespace tools {
namespace {

using Record = std::vector<std::string>;

// Each renewal makes the DCH tell of all that is on line once more, so it is not done too often.
// One that was away is told apart and asked at once.
constexpr std::chrono::seconds statusRenewalInterval{30};

// The subscription, which ends with the object. A signal ends the process: the DCH drops a
// subscriber that is gone.
class StatusWait {
 public:
  StatusWait() : _upkeep([this] { renew(); }, statusRenewalInterval) {
    DCH_api_init();
    // First, so that whoever sees the subscription can end it by a signal.
    _controlThread.emplace(
        [this](int signal) {
          if (signal != 0) _exit(EX_OK);
          _upkeep.check();
        },
        [this] { return _upkeep.nextCheck(); });
    subscribe();
  }
  ~StatusWait() {
    _controlThread.reset();
    unsubscribe();
  }
  StatusWait(const StatusWait&) = delete;
  StatusWait& operator=(const StatusWait&) = delete;

  std::string next() {
    const char* text;
    while ((text = dc_waitForDPStatus(_handle)) == nullptr) {
      // One datagram that is no change is enough, whoever sent it.
      std::cerr << "zordc: warning: the wait for a change of status failed, subscribing again\n";
      unsubscribe();
      subscribe();
    }
    _upkeep.messageCame();
    return text;
  }

 private:
  void subscribe() {
    const std::lock_guard lock(_senderMutex);
    _handle = dc_waitForDPStatusInitialize();
    if (_handle == nullptr) throw Failure(EX_UNAVAILABLE, "cannot send to the DCH");
    _sender.emplace(_handle);
  }
  void unsubscribe() {
    const std::lock_guard lock(_senderMutex);
    _sender.reset();
    if (_handle != nullptr) dc_waitForDPStatusDestroy(std::exchange(_handle, nullptr));
  }
  void renew() {
    const std::lock_guard lock(_senderMutex);
    if (_sender) _sender->startStatus();
  }

  void* _handle = nullptr;
  std::mutex _senderMutex;  // the control thread is there first
  std::optional<SubscriptionSender> _sender;
  SubscriptionUpkeep _upkeep;
  std::optional<ControlThread> _controlThread;
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

// What is known to be on line: a DCH that is asked again tells of it again, which is no change.
class OnlineSources {
 public:
  // Takes in an event. Returns false when it tells nothing new.
  bool update(const Record& change) {
    const Record source(change.begin(), change.begin() + 3);
    if (changeOf(change[3]) == "online") return _sources.insert(source).second;
    _sources.erase(source);
    return true;
  }

 private:
  std::set<Record> _sources;
};

}  // namespace

int followStatus(const StatusOptions& options) {
  std::signal(SIGPIPE, SIG_IGN);
  checkTransport();
  const auto writer = makeRecordWriter(options.format, {{"time", false, 24},
                                                        {"change", false, 12},
                                                        {"application", false, 20},
                                                        {"group", false, 12},
                                                        {"source"}});
  StatusWait wait;
  OnlineSources sources;
  for (std::uint64_t changes = 0; !options.count || changes < *options.count;) {
    const Record change = parse(wait.next());
    if (!sources.update(change)) continue;
    ++changes;
    const std::string time = formatTime(std::chrono::system_clock::now());
    if (!printLines(writer->format({time, changeOf(change[3]), change[0], change[1], change[2]})))
      break;
  }
  return EX_OK;
}

}  // namespace tools
