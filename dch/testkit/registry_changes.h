// registry_changes.h: changes of a registry, of which each is checked, kept and applied before the
// next.
#ifndef DCH_TESTKIT_REGISTRY_CHANGES_H
#define DCH_TESTKIT_REGISTRY_CHANGES_H

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "dch/core/registry.h"

namespace dch::testkit {

inline suite::Registration registrationOf(const std::string& text) {
  suite::Registration registration;
  std::string error;
  EXPECT_TRUE(suite::parseRegistration(text, &registration, &error)) << error;
  return registration;
}

inline DCH_Status registerText(Registry& registry, const std::string& text) {
  Registered change{registrationOf(text)};
  const DCH_Status status = registry.check(change.registration);
  if (status != DCH_STATUS_OK) return status;
  Prepared prepared = registry.prepare(change);
  return registry.apply(std::move(change), std::move(prepared)).status;
}

inline DCH_Status unregister(Registry& registry, const std::string& application) {
  const Unregistered change{application};
  return registry.apply(change, registry.prepare(change)).status;
}

struct Online {
  DCH_Status status;
  ZORA_Long handle;
};

inline Online goOnline(Registry& registry, const SourceNames& names) {
  const DCH_Status status = registry.check(names);
  if (status != DCH_STATUS_OK) return {status, 0};
  const WentOnline change{std::string(names.application), std::string(names.group),
                          std::string(names.source), registry.handleFor(names)};
  const Applied applied = registry.apply(change, registry.prepare(change));
  return {applied.status, applied.source != nullptr ? applied.source->handle : 0};
}

inline DCH_Status goOffline(Registry& registry, ZORA_Long handle) {
  const WentOffline change{handle};
  return registry.apply(change, registry.prepare(change)).status;
}

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_REGISTRY_CHANGES_H
