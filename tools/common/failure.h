// failure.h: how a tool ends when it cannot do its job.
#ifndef TOOLS_COMMON_FAILURE_H
#define TOOLS_COMMON_FAILURE_H

#include <stdexcept>
#include <string>

namespace tools {

// Ends the tool with an exit status of <sysexits.h> and a message for its user.
class Failure : public std::runtime_error {
 public:
  Failure(int exitStatus, const std::string& message)
      : std::runtime_error(message), _exitStatus(exitStatus) {}
  int exitStatus() const { return _exitStatus; }

 private:
  int _exitStatus;
};

}  // namespace tools

#endif  // TOOLS_COMMON_FAILURE_H
