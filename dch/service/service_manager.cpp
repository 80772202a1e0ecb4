#include "dch/service/service_manager.h"

#include <sys/socket.h>

#include <cstddef>

#include "dch/net/socket_option.h"
#include "dch/service/systemd_environment.h"

namespace dch {

namespace {

// So often within the interval: one that is not taken at once does not end the server.
constexpr int signsOfLife = 3;

// Returns the length of the address; 0 when `path` is none.
socklen_t readAddress(std::string path, sockaddr_un* address) {
  const bool isAbstract = path.starts_with('@');
  if (!(isAbstract || path.starts_with('/')) || path.size() >= sizeof address->sun_path) return 0;
  if (isAbstract) path[0] = '\0';
  address->sun_family = AF_UNIX;
  path.copy(address->sun_path, path.size());
  const std::size_t end = isAbstract ? 0 : 1;
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + end);
}

}  // namespace

ServiceManager::ServiceManager(EventLoop& loop)
    : _watchdogInterval(takeWatchdogInterval()), _watchdog(loop, [this] { watch(); }) {
  _addressLength = readAddress(takeNotifySocket(), &_address);
  if (_addressLength == 0) return;
  _socket = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!_socket.isOpen()) throwSystemError("cannot open a socket to the service manager");
  if (_watchdogInterval) _watchdog.set(*_watchdogInterval / signsOfLife);
}

void ServiceManager::showStatus(const std::string& text) {
  if (text == _status) return;
  _status = text;
  _isStatusTold = false;
  flush();
}

void ServiceManager::flush() {
  if (_untoldState != nullptr && send(_untoldState)) _untoldState = nullptr;
  if (!_isStatusTold) _isStatusTold = send("STATUS=" + _status);
}

void ServiceManager::tellState(const char* state) {
  _untoldState = state;
  flush();
}

void ServiceManager::watch() {
  alive();
  _watchdog.set(*_watchdogInterval / signsOfLife);
}

// Returns whether it is done with.
bool ServiceManager::send(const std::string& message) {
  return !isThere() || sendto(_socket.get(), message.data(), message.size(), MSG_NOSIGNAL,
                              reinterpret_cast<const sockaddr*>(&_address), _addressLength) >= 0;
}

}  // namespace dch
