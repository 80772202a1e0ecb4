// options.h: the command line of zordchd.
#ifndef DCH_SERVICE_OPTIONS_H
#define DCH_SERVICE_OPTIONS_H

#include <optional>
#include <string>

namespace dch {

struct Options {
  std::optional<std::string> configurationFile;
  bool isCheck = false;  // whether the configuration file is good
  // What goes before the configuration file.
  std::optional<int> port;  // 0: any free one
  std::optional<std::string> bindAddress;
  std::optional<std::string> instance;
  std::optional<std::string> actionsFile;
  std::optional<std::string> store;  // a file, or "memory"
  std::optional<std::string> web;    // address and port of the page
  bool verbose = false;
};

// Fills `options`. Returns the exit status when the process is to end: after it printed the help,
// the version or what a shell asked for (tools/common/completion.h), or an error on standard error.
std::optional<int> readOptions(int argc, const char* const* argv, Options* options);

}  // namespace dch

#endif  // DCH_SERVICE_OPTIONS_H
