// fleet_providers.h: what the sites of a fleet have of providers, and say of them.
#ifndef DCH_TESTKIT_FLEET_PROVIDERS_H
#define DCH_TESTKIT_FLEET_PROVIDERS_H

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "dch/link/own_providers.h"
#include "suite/registration.h"

namespace dch::testkit {

// Where the sources of a site are, which have the numbers from 0 on: the same at all sites, some
// groups in each of a few applications.
struct FleetSource {
  explicit FleetSource(int number);

  std::string application, group, name;
};

// Each site says it as a server does, by OwnProviders. Any thread.
class FleetProviders {
 public:
  // They have none before goOnline().
  FleetProviders(int sites, int sourcesOfSite);

  // All sites have registered the applications, and nearly all of their sources are on line.
  void goOnline();
  // So many sources of the site, other ones each time, go on line or off it. After goOnline().
  void change(int site, int sources);

  // Of all sites.
  long sourcesOnline() const;

  // As of OwnProviders, of the site.
  OwnProviders::Changes changes(int site);
  OwnProviders::Piece answer(int site, std::string_view key) const;

 private:
  struct Site {
    OwnProviders told;
    std::vector<bool> isOnline;  // each source
    std::size_t nextToChange = 0;
  };

  void takeOnline(Site* site) const;

  std::vector<std::shared_ptr<const suite::Registration>> _applications;
  mutable std::mutex _mutex;
  std::vector<Site> _sites;
  const int _sourcesOfSite;
  long _sourcesOnline = 0;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_FLEET_PROVIDERS_H
