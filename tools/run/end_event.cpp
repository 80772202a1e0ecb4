#include "tools/run/end_event.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "tools/common/failure.h"

namespace tools {

EndEvent::EndEvent() : _descriptor(eventfd(0, EFD_CLOEXEC)) {
  if (_descriptor < 0)
    throw Failure(EX_OSERR, std::string("cannot watch for signals: ") + strerror(errno));
}

EndEvent::~EndEvent() {
  close(_descriptor);
}

void EndEvent::begin() {
  _hasBegun = true;
  eventfd_write(_descriptor, 1);
}

bool EndEvent::waitUntil(Clock::time_point time) const {
  while (!_hasBegun && Clock::now() < time) {
    pollfd watched{_descriptor, POLLIN, 0};
    poll(&watched, 1, millisecondsUntil(time));
  }
  return _hasBegun;
}

int millisecondsUntil(EndEvent::Clock::time_point time) {
  using namespace std::chrono;
  const auto now = EndEvent::Clock::now();
  if (time <= now) return 0;
  return static_cast<int>(ceil<milliseconds>(std::min<nanoseconds>(time - now, hours(24))).count());
}

}  // namespace tools
