#include "tools/run/service_manager.h"

#ifdef ZORD410_SYSTEMD
#include <systemd/sd-daemon.h>
#endif

namespace tools {
namespace {

void tell([[maybe_unused]] const std::string& message) {
#ifdef ZORD410_SYSTEMD
  constexpr int stays = 0;  // the variable that names the socket
  sd_notify(stays, message.c_str());
#endif
}

}  // namespace

void ServiceManager::ready() const {
  tell("READY=1");
}

void ServiceManager::stopping() const {
  tell("STOPPING=1");
}

void ServiceManager::showStatus(const std::string& text) {
  if (text == _status) return;
  _status = text;
  tell("STATUS=" + text);
}

}  // namespace tools
