// service_manager.h: what zordp tells systemd when that has started it as a service.
#ifndef TOOLS_RUN_SERVICE_MANAGER_H
#define TOOLS_RUN_SERVICE_MANAGER_H

#include <string>

namespace tools {

// Without a service manager nothing is told. One thread.
class ServiceManager {
 public:
  void ready() const;
  void stopping() const;

  // One line for people. Told when it is another one than before.
  void showStatus(const std::string& text);

 private:
  std::string _status;
};

}  // namespace tools

#endif  // TOOLS_RUN_SERVICE_MANAGER_H
