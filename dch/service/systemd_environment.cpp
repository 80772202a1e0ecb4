#include "dch/service/systemd_environment.h"

#ifdef ZORD410_SYSTEMD
#include <systemd/sd-daemon.h>

#include <cstdint>
#include <cstdlib>

#include "dch/service/environment.h"
#endif

namespace dch {

#ifdef ZORD410_SYSTEMD

static_assert(firstHandedOver == SD_LISTEN_FDS_START);

std::string takeNotifySocket() {
  std::string path = variable("NOTIFY_SOCKET");
  unsetenv("NOTIFY_SOCKET");
  return path;
}

std::optional<std::chrono::microseconds> takeWatchdogInterval() {
  std::uint64_t microseconds = 0;
  constexpr int taken = 1;
  if (sd_watchdog_enabled(taken, &microseconds) <= 0) return std::nullopt;
  return std::chrono::microseconds(microseconds);
}

int takeHandedOverDescriptors() {
  constexpr int taken = 1;
  return sd_listen_fds(taken);
}

#else

std::string takeNotifySocket() {
  return {};
}

std::optional<std::chrono::microseconds> takeWatchdogInterval() {
  return std::nullopt;
}

int takeHandedOverDescriptors() {
  return 0;
}

#endif

}  // namespace dch
