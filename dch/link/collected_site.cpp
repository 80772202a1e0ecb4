#include "dch/link/collected_site.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "dch/link/link_settings.h"
#include "suite/registration.h"
#include "zordchcl/zordchcl.h"

namespace dch {

bool mayBeKept(const RowHeader& header, const RowSubject& subject) {
  return subject.site.size() <= longestSiteName &&
         subject.application.size() <= DCH_MAX_APPL_NAME &&
         subject.group.size() <= suite::longestName && header.source.size() <= DCH_MAX_SOURCE_NAME;
}

CollectedSite::CollectedSite(std::string name, IncomingRows::State kept)
    : rows(kept), _name(std::move(name)), _kept(std::move(kept)) {}

std::optional<std::int64_t> CollectedSite::collectedUpTo(const Epoch& run) const {
  std::optional<std::int64_t> upTo;
  if (told && told->run == run) upTo = told->upTo;
  const std::vector<RowName>& have = rows.state().have;
  const auto known = std::find_if(have.begin(), have.end(),
                                  [&](const RowName& each) { return each.epoch == run; });
  if (known != have.end()) upTo = std::max(upTo.value_or(0), known->number);
  return upTo;
}

void CollectedSite::keep(const RowHeader& header, const RowSubject& subject,
                         std::string_view message) {
  _unkept.push_back({header.name, header.time, subject.application, subject.group, header.source,
                     std::string(message)});
}

std::optional<RemoteRows> CollectedSite::takeUnkept() {
  RemoteRows taken{.site = _name,
                   .rows = std::exchange(_unkept, {}),
                   .known = changedNames(),
                   .passedFrom = rows.state().passedFrom};
  const bool isNothing =
      taken.rows.empty() && taken.known.empty() && taken.passedFrom == _kept.passedFrom;
  if (isNothing) return std::nullopt;
  _kept = rows.state();
  return taken;
}

// What was changed comes first: behind it both are the same, however many runs the site has had.
std::vector<RowName> CollectedSite::changedNames() const {
  const std::vector<RowName>& now = rows.state().have;
  const auto [nowEnd, keptEnd] =
      std::mismatch(now.rbegin(), now.rend(), _kept.have.rbegin(), _kept.have.rend());
  std::vector<RowName> changed;
  std::copy_if(now.begin(), nowEnd.base(), std::back_inserter(changed),
               [&, end = keptEnd.base()](const RowName& each) {
                 return std::find(_kept.have.begin(), end, each) == end;
               });
  return changed;
}

}  // namespace dch
