#include "dch/core/changes_under_way.h"

namespace dch {

bool ChangesUnderWay::holdUp(std::string_view application, ZORA_Long handle) const {
  const auto known = _applications.find(application);
  if (known == _applications.end()) return false;
  return handle == 0 || known->second.contains(0) || known->second.contains(handle);
}

void ChangesUnderWay::add(const Claim& claim) {
  if (claim.application.empty()) return;
  auto& handles = _applications[claim.application];
  try {
    handles.insert(claim.handle);
  } catch (...) {
    if (handles.empty()) _applications.erase(claim.application);
    throw;
  }
}

void ChangesUnderWay::remove(const Claim& claim) noexcept {
  const auto known = _applications.find(claim.application);
  if (known == _applications.end()) return;
  known->second.erase(claim.handle);
  if (known->second.empty()) _applications.erase(known);
}

}  // namespace dch
