// configuration_keys.h: the keys of the configuration file, and what values they take.
#ifndef DCH_SERVICE_CONFIGURATION_KEYS_H
#define DCH_SERVICE_CONFIGURATION_KEYS_H

#include <span>

#include "dch/service/configuration.h"
#include "files/faults.h"

namespace dch {

struct ConfigurationKey {
  const char* section;
  const char* name;
  // Throws files::WrongValue, or std::bad_alloc.
  void (*read)(const toml::node& value, Configuration* configuration);
};

// Those of a section stand together.
std::span<const ConfigurationKey> configurationKeys();

}  // namespace dch

#endif  // DCH_SERVICE_CONFIGURATION_KEYS_H
