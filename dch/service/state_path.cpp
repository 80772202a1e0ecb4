#include "dch/service/state_path.h"

#include <pwd.h>
#include <unistd.h>

#include <filesystem>
#include <string_view>
#include <system_error>

#include "dch/service/environment.h"
#include "dch/store/state_file_error.h"

namespace dch {

namespace {

#ifdef ZORD410_SQLITE
constexpr bool canKeepState = true;
#else
constexpr bool canKeepState = false;
#endif

std::string homeDirectory() {
  std::string home = variable("HOME");
  if (!home.empty()) return home;
  const passwd* const user = getpwuid(getuid());
  return user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "";
}

// ~/.local/state, or what the user has in its place.
std::string userStateDirectory() {
  std::string configured = variable("XDG_STATE_HOME");
  if (configured.starts_with('/')) return configured;  // a relative one does not count
  const std::string home = homeDirectory();
  if (home.empty())
    throw StateFileError(
        "no place for the state: this user has no home directory; give --store FILE, or --store "
        "memory to keep nothing");
  return home + "/.local/state";
}

void makeDirectory(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (error)
    throw StateFileError("cannot make the directory " + path +
                         " for the state: " + error.message() +
                         "; give --store FILE, or --store memory to keep "
                         "nothing");
}

}  // namespace

bool isStateInMemory(const std::optional<std::string>& wanted, bool isAnyPort) {
  return wanted == "memory" || (!wanted && (isAnyPort || !canKeepState));
}

std::optional<std::string> statePath(const std::optional<std::string>& wanted, bool isAnyPort,
                                     int port) {
  if (isStateInMemory(wanted, isAnyPort)) return std::nullopt;
  if (wanted) return wanted;
  // With several directories the first is the one for what it makes itself.
  const std::string ofService = variable("STATE_DIRECTORY");
  if (!ofService.empty()) return ofService.substr(0, ofService.find(':')) + "/zordchd.db";
  const std::string directory = userStateDirectory() + "/zord410";
  makeDirectory(directory);
  return directory + "/zordchd-" + std::to_string(port) + ".db";
}

}  // namespace dch
