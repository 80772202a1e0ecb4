// observers.h: all who look on at what the core does: the page, and the link for the rows and for
// the providers.
#ifndef DCH_CORE_OBSERVERS_H
#define DCH_CORE_OBSERVERS_H

#include <algorithm>
#include <array>
#include <string_view>

#include "dch/core/observer.h"

namespace dch {

// Each of them may be missing. They outlive whoever tells them.
class Observers {
 public:
  Observers() = default;
  // One alone is all of them.
  Observers(Observer* first, Observer* second = nullptr, Observer* third = nullptr)
      : _all{first, second, third} {}

  bool empty() const {
    return std::all_of(_all.begin(), _all.end(), [](Observer* each) { return each == nullptr; });
  }

  void rowKept(const Source& source, std::string_view message, std::string_view former,
               Time time) const noexcept {
    for (Observer* const each : _all)
      if (each != nullptr) each->rowKept(source, message, former, time);
  }
  void statusChanged(const SourceNames& names, short requestCode) const noexcept {
    for (Observer* const each : _all)
      if (each != nullptr) each->statusChanged(names, requestCode);
  }
  void topicChanged(std::string_view topic, bool isWanted) const noexcept {
    for (Observer* const each : _all)
      if (each != nullptr) each->topicChanged(topic, isWanted);
  }

 private:
  std::array<Observer*, 3> _all{};
};

}  // namespace dch

#endif  // DCH_CORE_OBSERVERS_H
