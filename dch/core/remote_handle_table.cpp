#include "dch/core/remote_handle_table.h"

#include "dch/core/handles.h"

namespace dch {

ZORA_Long RemoteHandleTable::handleOf(const RemoteNames& names) {
  makeKey(names, &_key);
  if (const auto known = _handles.find(_key); known != _handles.end()) return known->second;
  if (_handles.size() >= mostRemoteSources) return 0;
  auto site = _ofSites.find(names.site);
  if (site != _ofSites.end() && site->second >= mostRemoteSourcesOfSite) return 0;
  const ZORA_Long handle = firstRemoteHandle + static_cast<ZORA_Long>(_handles.size());
  if (site == _ofSites.end()) site = _ofSites.emplace(names.site, 0).first;
  _handles.emplace(_key, handle);
  ++site->second;
  return handle;
}

}  // namespace dch
