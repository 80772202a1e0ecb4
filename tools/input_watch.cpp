#include "tools/input_watch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "tools/common/failure.h"

namespace tools {

InputWatch::InputWatch() : _wakeDescriptor(eventfd(0, EFD_CLOEXEC)) {
  if (_wakeDescriptor < 0)
    throw Failure(EX_OSERR, std::string("cannot watch for signals: ") + strerror(errno));
}

InputWatch::~InputWatch() {
  _controlThread.reset();
  close(_wakeDescriptor);
}

void InputWatch::takeSignals() {
  _controlThread.emplace([this](int signal) {
    _signal = signal;
    eventfd_write(_wakeDescriptor, 1);
  });
}

bool InputWatch::wait(int descriptor, int limitMilliseconds) {
  pollfd watched[] = {{_wakeDescriptor, POLLIN, 0}, {descriptor, POLLIN, 0}};
  // A poll that fails (it is interrupted when the process is stopped) is one without input.
  const int ready = poll(watched, 2, limitMilliseconds);
  checkSignals();
  return ready > 0 && watched[1].revents != 0;
}

void InputWatch::checkSignals() const {
  if (const int signal = _signal) throw StoppedBySignal(signal);
}

}  // namespace tools
