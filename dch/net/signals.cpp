#include "dch/net/signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <utility>

#include "dch/net/socket_option.h"

namespace dch {

namespace {

// One that comes while it waits to be taken is there once, however often it comes; none is lost.
Descriptor holdBack(std::initializer_list<int> signals) {
  sigset_t held;
  sigemptyset(&held);
  for (const int each : signals) sigaddset(&held, each);
  if (sigprocmask(SIG_BLOCK, &held, nullptr) != 0) throwSystemError("cannot hold signals back");
  Descriptor pending(signalfd(-1, &held, SFD_NONBLOCK | SFD_CLOEXEC));
  if (!pending.isOpen()) throwSystemError("cannot take signals");
  return pending;
}

}  // namespace

Signals::Signals(EventLoop& loop, std::initializer_list<int> signals, std::function<void(int)> call)
    : _call(std::move(call)), _pending(loop, holdBack(signals), [this] { take(); }) {
  _pending.waitUntilReadable();
}

void Signals::take() {
  signalfd_siginfo signal{};
  const bool isTaken = read(_pending.descriptor(), &signal, sizeof signal) == sizeof signal;
  _pending.waitUntilReadable();
  if (isTaken) _call(static_cast<int>(signal.ssi_signo));
}

}  // namespace dch
