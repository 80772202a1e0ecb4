// remote_names.h: what tells a source of another site from all others.
#ifndef DCH_CORE_REMOTE_NAMES_H
#define DCH_CORE_REMOTE_NAMES_H

#include <string>
#include <string_view>

#include "dch/core/change.h"

namespace dch {

// May be any bytes.
struct RemoteNames {
  std::string_view site;
  std::string_view application;
  std::string_view group;
  std::string_view source;
};

// Valid as long as the source is.
RemoteNames namesOf(const RemoteSourceSeen& source);

// Another one for all other names.
void makeKey(const RemoteNames& names, std::string* key);

}  // namespace dch

#endif  // DCH_CORE_REMOTE_NAMES_H
