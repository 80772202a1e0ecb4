#include "dch/core/remote_names.h"

namespace dch {

RemoteNames namesOf(const RemoteSourceSeen& source) {
  return {source.site, source.application, source.group, source.source};
}

// Since names may be any bytes, their lengths belong to it.
void makeKey(const RemoteNames& names, std::string* key) {
  key->clear();
  for (const std::string_view name : {names.site, names.application, names.group, names.source})
    key->append(std::to_string(name.size())).append(1, ' ').append(name);
}

}  // namespace dch
