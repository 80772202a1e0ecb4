#include "dch/net/waker.h"

#include <sys/eventfd.h>

#include <utility>

#include "dch/net/socket_option.h"

namespace dch {

namespace {

Descriptor openEvent() {
  Descriptor event(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
  if (!event.isOpen()) throwSystemError("cannot wake the loop");
  return event;
}

}  // namespace

Waker::Waker(EventLoop& loop, std::function<void()> call)
    : _call(std::move(call)), _event(loop, openEvent(), [this] { awake(); }) {
  _event.waitUntilReadable();
}

void Waker::wake() noexcept {
  eventfd_write(_event.descriptor(), 1);
}

void Waker::awake() {
  eventfd_t count;
  eventfd_read(_event.descriptor(), &count);
  _event.waitUntilReadable();
  _call();
}

}  // namespace dch
