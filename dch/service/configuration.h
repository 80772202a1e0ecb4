// configuration.h: what the server is to do, from its command line and its configuration file.
#ifndef DCH_SERVICE_CONFIGURATION_H
#define DCH_SERVICE_CONFIGURATION_H

#include <optional>
#include <string>
#include <vector>

#include "dch/core/programs.h"
#include "dch/link/link_settings.h"
#include "dch/net/channel.h"
#include "dch/service/options.h"
#include "dch/store/store_settings.h"
#include "dch/web/access.h"
#include "dch/web/web_port.h"

namespace dch {

// What is not set comes from the environment, or is left out.
struct Configuration {
  std::optional<int> port;  // 0: any free one
  std::optional<std::string> bindAddress;
  std::optional<std::string> instance;
  ChannelLimits limits = {};

  std::optional<std::string> store;  // a file, or "memory"
  Durability durability = Durability::process;
  RetentionLimits retention = {};

  std::optional<std::string> actionsFile;
  ActionRules actions{.allowed = AddressRanges::thisMachine()};

  std::optional<WebAddress> webAddress;  // of the page; nothing: there is none
  std::optional<std::string> tokenFile;
  Access webAccess = {};

  LinkSettings link = {};  // its site is the name of this machine where none is set
  std::optional<std::string> credentialsFile;

  bool isVerbose = false;

  // What was asked for and is not done, a sentence each.
  std::vector<std::string> warnings = {};
};

// Reads the files that the options name. What the command line says goes before the configuration
// file. Throws ConfigurationError.
Configuration readConfiguration(const Options& options);

// Replaces what cannot change while the server runs in `fresh` by what it is in `running`. Returns
// the keys of which that made a difference.
std::vector<std::string> keepWhatCannotChange(const Configuration& running, Configuration* fresh);

}  // namespace dch

#endif  // DCH_SERVICE_CONFIGURATION_H
