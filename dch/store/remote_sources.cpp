#include "dch/store/remote_sources.h"

#include "dch/core/handles.h"

namespace dch {

ZORA_Long RemoteSources::handleOf(const RemoteNames& names) {
  makeKey(names, &_key);
  const auto known = _atHand.find(_key);
  if (known != _atHand.end()) return known->second;
  const ZORA_Long handle = findOrAdd(names);
  if (handle == 0) return 0;
  if (_atHand.size() == mostAtHand) _atHand.clear();
  return _atHand.emplace(_key, handle).first->second;
}

bool RemoteSources::hasRoom(std::string_view site) {
  if (_table.count() >= mostRemoteSources) return false;  // whoever asks takes no memory then
  auto known = _ofSites.find(site);
  if (known == _ofSites.end()) {
    if (_ofSites.size() == mostSitesAtHand) _ofSites.clear();
    known = _ofSites.emplace(site, _table.countOf(site)).first;
  }
  return known->second < mostRemoteSourcesOfSite;
}

ZORA_Long RemoteSources::findOrAdd(const RemoteNames& names) {
  if (const ZORA_Long known = _table.find(names); known != 0) return known;
  if (!hasRoom(names.site)) return 0;
  const ZORA_Long handle = _table.add(names);
  ++_ofSites.find(names.site)->second;
  ++_added.sources;
  _added.nameBytes += static_cast<std::int64_t>(names.site.size() + names.application.size() +
                                                names.group.size() + names.source.size());
  return handle;
}

}  // namespace dch
