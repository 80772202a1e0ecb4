// link_settings.h: which servers of NATS a site is linked with, and as whom.
#ifndef DCH_LINK_LINK_SETTINGS_H
#define DCH_LINK_LINK_SETTINGS_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace dch {

inline constexpr std::size_t longestSiteName = 64;

struct LinkUser {
  std::string name;
  std::string password;

  bool operator==(const LinkUser&) const = default;
};

struct LinkSettings {
  // nats://HOST:PORT, or tls://HOST:PORT for one that has to use TLS. They are those of one
  // cluster; none: the site is on its own.
  std::vector<std::string> servers = {};
  std::string site = {};
  std::optional<LinkUser> user = {};
  // A file of certificates that are trusted beside the system's.
  std::optional<std::string> tlsCa = {};
  // It is a hub: its store keeps the rows of all sites.
  bool storeRemote = false;

  bool operator==(const LinkSettings&) const = default;
};

}  // namespace dch

#endif  // DCH_LINK_LINK_SETTINGS_H
