#include "dch/link/shared_registrations.h"

#include <algorithm>
#include <string>
#include <utility>

#include "suite/fields.h"

namespace dch {

namespace {

constexpr std::size_t longestRegistrationText = ZOR0_MAX_REQUEST_SIZE;
constexpr std::size_t fewestToLookAt = 64;

}  // namespace

std::shared_ptr<const suite::Registration> SharedRegistrations::of(std::string_view text) {
  if (text.size() > longestRegistrationText) return nullptr;
  const auto place = _known.find(text);
  if (place != _known.end())
    if (auto registration = place->second.lock()) return registration;
  auto parsed = std::make_unique<suite::Registration>();
  std::string error;
  if (!suite::parseRegistration(text, parsed.get(), &error) || parsed->text != text) return nullptr;
  // Not made in one piece with its count: that would be kept as long as anybody remembers it.
  std::shared_ptr<const suite::Registration> registration(std::move(parsed));
  if (place != _known.end()) {
    place->second = registration;
    return registration;
  }
  if (_known.size() >= _nextLook) forgetUnused();
  _known.emplace(text, registration);
  return registration;
}

void SharedRegistrations::forgetUnused() {
  std::erase_if(_known, [](const auto& each) { return each.second.expired(); });
  _nextLook = std::max(fewestToLookAt, 2 * _known.size());
}

}  // namespace dch
