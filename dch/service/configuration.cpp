#include "dch/service/configuration.h"

#include <unistd.h>

#include <array>

#include "dch/service/action_list.h"
#include "dch/service/configuration_error.h"
#include "dch/service/configuration_file.h"
#include "dch/service/credentials_file.h"
#include "dch/service/file_content.h"
#include "dch/service/setting_checks.h"
#include "dch/service/state_path.h"
#include "dch/service/token_file.h"

namespace dch {

namespace {

template <typename Value>
void prefer(const std::optional<Value>& given, std::optional<Value>* value) {
  if (given) *value = given;
}

template <typename Value>
void keep(const char* key, const Value& running, Value* fresh, std::vector<std::string>* kept) {
  if (*fresh == running) return;
  *fresh = running;
  kept->push_back(key);
}

std::string nameOfThisMachine() {
  std::array<char, 256> name{};
  gethostname(name.data(), name.size() - 1);
  return name.data();
}

void completeLink(Configuration* configuration) {
#ifndef ZORD410_LINK
  throw ConfigurationError("this build cannot link servers: leave servers in [link] out");
#endif
  LinkSettings& link = configuration->link;
  if (link.site.empty()) link.site = nameOfThisMachine();
  if (!checkSiteName(link.site).empty())
    throw ConfigurationError(
        "this machine has no name that can be the name of its site: set site in [link]");
  if (link.tlsCa) contentOfFile(*link.tlsCa);  // which is read again whenever the link is made
  if (configuration->credentialsFile)
    link.user = readCredentialsFile(*configuration->credentialsFile, &configuration->warnings);
}

}  // namespace

Configuration readConfiguration(const Options& options) {
  Configuration configuration;
  if (options.configurationFile) configuration = readConfigurationFile(*options.configurationFile);
  prefer(options.port, &configuration.port);
  prefer(options.bindAddress, &configuration.bindAddress);
  prefer(options.instance, &configuration.instance);
  prefer(options.actionsFile, &configuration.actionsFile);
  prefer(options.store, &configuration.store);
  if (options.web) configuration.webAddress = parseWebAddress(*options.web);
  configuration.isVerbose = configuration.isVerbose || options.verbose;
  if (configuration.actionsFile)
    configuration.actions.list = readActionList(*configuration.actionsFile);
  if (configuration.tokenFile)
    configuration.webAccess.token =
        readTokenFile(*configuration.tokenFile, &configuration.warnings);
  if (configuration.link.storeRemote &&
      isStateInMemory(configuration.store, configuration.port == 0))
    throw ConfigurationError(
        "store_remote in [link] needs a file for the state, which is in memory: set path in "
        "[store], or give --store FILE");
  if (!configuration.link.servers.empty()) completeLink(&configuration);
  return configuration;
}

std::vector<std::string> keepWhatCannotChange(const Configuration& running, Configuration* fresh) {
  std::vector<std::string> kept;
  keep("bind in [channel]", running.bindAddress, &fresh->bindAddress, &kept);
  keep("port in [channel]", running.port, &fresh->port, &kept);
  keep("instance in [channel]", running.instance, &fresh->instance, &kept);
  keep("path in [store]", running.store, &fresh->store, &kept);
  keep("durability in [store]", running.durability, &fresh->durability, &kept);
  keep("listen in [web]", running.webAddress, &fresh->webAddress, &kept);
  keep("[link]", running.link, &fresh->link, &kept);
  return kept;
}

}  // namespace dch
