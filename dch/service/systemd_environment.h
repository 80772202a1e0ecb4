// systemd_environment.h: what systemd says in the environment of a process that it starts.
#ifndef DCH_SERVICE_SYSTEMD_ENVIRONMENT_H
#define DCH_SERVICE_SYSTEMD_ENVIRONMENT_H

#include <chrono>
#include <optional>
#include <string>

namespace dch {

// Each takes what it returns out of the environment: programs that the server starts are not to
// take it for theirs. To be called while the process has one thread. A build without systemd
// finds nothing.

// The socket that is told how the server does, as in sockaddr_un with `@` for a zero byte; empty
// when there is none.
std::string takeNotifySocket();

// How long the server may be silent; nothing when it is not watched over.
std::optional<std::chrono::microseconds> takeWatchdogInterval();

// How many descriptors were handed over, from firstHandedOver on, or minus an error number.
// Programs that the server starts do not have them.
constexpr int firstHandedOver = 3;
int takeHandedOverDescriptors();

}  // namespace dch

#endif  // DCH_SERVICE_SYSTEMD_ENVIRONMENT_H
