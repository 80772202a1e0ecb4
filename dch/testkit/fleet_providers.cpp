#include "dch/testkit/fleet_providers.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace dch::testkit {

namespace {

constexpr int applications = 4;
constexpr int groups = 12;  // of all applications together
// As a rule some machines are off.
constexpr int sourcesForOneOffline = 50;

std::string applicationName(int application) {
  return "FLEET" + std::to_string(application);
}

std::string groupName(int group) {
  return "group" + std::to_string(group);
}

std::shared_ptr<const suite::Registration> registrationOf(int application) {
  std::string text =
      "appl:" + applicationName(application) + ",FL" + std::to_string(application) + ";type:SOCK;";
  for (int group = application; group < groups; group += applications)
    text += "group:" + groupName(group) + ";attr:load1,D,16;attr:number,N,4;";
  const auto registration = std::make_shared<suite::Registration>();
  std::string error;
  if (!suite::parseRegistration(text, registration.get(), &error)) throw std::logic_error(error);
  return registration;
}

ProviderFact factOf(int number, bool isOnline) {
  FleetSource source(number);
  return {.kind = isOnline ? ProviderFact::Kind::online : ProviderFact::Kind::offline,
          .application = std::move(source.application),
          .group = std::move(source.group),
          .source = std::move(source.name)};
}

}  // namespace

FleetSource::FleetSource(int number)
    : application(applicationName(number % applications)),
      group(groupName(number % groups)),
      name("host" + std::to_string(number)) {}

FleetProviders::FleetProviders(int sites, int sourcesOfSite)
    : _sites(static_cast<std::size_t>(sites)), _sourcesOfSite(sourcesOfSite) {
  for (int each = 0; each < applications; ++each) _applications.push_back(registrationOf(each));
}

// The sites go on speaking while that is made, which takes seconds.
void FleetProviders::goOnline() {
  std::vector<Site> sites(_sites.size());
  for (Site& each : sites) takeOnline(&each);
  const std::lock_guard lock(_mutex);
  _sites.swap(sites);
  for (const Site& each : _sites)
    _sourcesOnline += std::count(each.isOnline.begin(), each.isOnline.end(), true);
}

void FleetProviders::takeOnline(Site* site) const {
  ProviderNews news{.kind = ProviderNews::Kind::first, .isAll = true};
  for (const auto& each : _applications)
    news.facts.push_back({.kind = ProviderFact::Kind::registered,
                          .application = each->applName,
                          .registration = each});
  for (int source = 0; source < _sourcesOfSite; ++source) {
    site->isOnline.push_back(source % sourcesForOneOffline != 0);
    if (site->isOnline.back()) news.facts.push_back(factOf(source, true));
  }
  site->told.take(news);
}

void FleetProviders::change(int number, int sources) {
  const std::lock_guard lock(_mutex);
  Site& site = _sites[static_cast<std::size_t>(number)];
  ProviderNews news;
  for (int count = 0; count < sources; ++count) {
    const std::size_t source = site.nextToChange++ % site.isOnline.size();
    site.isOnline[source].flip();
    _sourcesOnline += site.isOnline[source] ? 1 : -1;
    news.facts.push_back(factOf(static_cast<int>(source), site.isOnline[source]));
  }
  site.told.take(news);
}

long FleetProviders::sourcesOnline() const {
  const std::lock_guard lock(_mutex);
  return _sourcesOnline;
}

OwnProviders::Changes FleetProviders::changes(int site) {
  const std::lock_guard lock(_mutex);
  return _sites[static_cast<std::size_t>(site)].told.changes();
}

OwnProviders::Piece FleetProviders::answer(int site, std::string_view key) const {
  const std::lock_guard lock(_mutex);
  return _sites[static_cast<std::size_t>(site)].told.answer(key);
}

}  // namespace dch::testkit
