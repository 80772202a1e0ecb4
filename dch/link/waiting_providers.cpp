#include "dch/link/waiting_providers.h"

#include <new>
#include <string>
#include <utility>

namespace dch {

namespace {

// What is parsed of a registration takes so many times its text at most, roughly. Others may have
// the same one; who counts on that is told of many different ones some day.
constexpr std::size_t growthOfRegistrations = 8;

std::size_t sizeOf(const std::string& name) {
  static const std::size_t inside = std::string().capacity();
  return name.size() > inside ? name.size() : 0;
}

std::size_t sizeOf(const ProviderFact& fact) {
  return sizeof(fact) + sizeOf(fact.application) + sizeOf(fact.group) + sizeOf(fact.source) +
         (fact.registration ? growthOfRegistrations * fact.registration->text.size() : 0);
}

std::size_t sizeOf(const ProviderNews& news) {
  std::size_t size = sizeof(news) + sizeOf(news.site);
  for (const ProviderFact& fact : news.facts) size += sizeOf(fact);
  return size;
}

}  // namespace

bool WaitingProviders::hasRoom(std::string_view site) const noexcept {
  const std::lock_guard lock(_mutex);
  const auto known = _bytesOfSites.find(site);
  return _bytes <= _most / 2 && (known == _bytesOfSites.end() || known->second <= _most / 8);
}

bool WaitingProviders::put(ProviderNews&& news) noexcept {
  try {
    const std::size_t size = sizeOf(news);
    const std::lock_guard lock(_mutex);
    const auto known = _bytesOfSites.find(news.site);
    const std::size_t ofSite = known != _bytesOfSites.end() ? known->second : 0;
    if (_bytes + size > _most || ofSite + size > _most / 4) return false;
    keep(std::move(news), size);
    if (_news.size() == 1 && _wake) _wake();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void WaitingProviders::keep(ProviderNews&& news, std::size_t size) {
  const auto place = _bytesOfSites.try_emplace(news.site, 0).first;
  try {
    _news.push_back(std::move(news));
  } catch (const std::bad_alloc&) {
    if (place->second == 0) _bytesOfSites.erase(place);
    throw;
  }
  place->second += size;
  _bytes += size;
}

void WaitingProviders::setWake(std::function<void()> wake) noexcept {
  const std::lock_guard lock(_mutex);
  _wake = std::move(wake);
}

std::optional<ProviderNews> WaitingProviders::take() noexcept {
  const std::lock_guard lock(_mutex);
  if (_news.empty()) return std::nullopt;
  std::optional<ProviderNews> news(std::move(_news.front()));
  _news.pop_front();
  const std::size_t size = sizeOf(*news);
  _bytes -= size;
  const auto site = _bytesOfSites.find(news->site);
  site->second -= size;
  if (site->second == 0) _bytesOfSites.erase(site);
  return news;
}

}  // namespace dch
