// state_path.h: where the state of the server is kept.
#ifndef DCH_SERVICE_STATE_PATH_H
#define DCH_SERVICE_STATE_PATH_H

#include <optional>
#include <string>

namespace dch {

// The file of the state of a server that serves `port`; nothing when it is kept in memory alone.
// `wanted` is what the operator asked for: a file, or "memory". Without that a server on any free
// port (`isAnyPort`) keeps nothing; another one has its file in the state directory that systemd
// made for it, else in the user's, which is made when it is not there. Throws StateFileError when
// that cannot be.
std::optional<std::string> statePath(const std::optional<std::string>& wanted, bool isAnyPort,
                                     int port);

// Whether it is kept in memory alone.
bool isStateInMemory(const std::optional<std::string>& wanted, bool isAnyPort);

}  // namespace dch

#endif  // DCH_SERVICE_STATE_PATH_H
