// snapshot.h: what the channel's thread knows, copied for the web's.
#ifndef DCH_WEB_SNAPSHOT_H
#define DCH_WEB_SNAPSHOT_H

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "dch/core/change.h"
#include "dch/core/request_counts.h"
#include "dch/web/earlier_numbers.h"
#include "suite/registration.h"

namespace dch {

// It is copied piece by piece, and changes may be applied in between: all of it is at least as new
// as the question for it, but what is behind may be newer than what is in front. So a source may be
// there whose group is not among the registrations yet, or not any more.
struct Snapshot {
  struct SourceState {
    std::string application;
    std::string group;
    std::string name;
    ZORA_Long handle = 0;
    bool isOnline = false;
    bool isCurrent = false;  // its newest row came since it went on line
    Time rowTime = 0;
    std::string message;                    // its newest row as it came; empty when none is at hand
    std::vector<NamedNumber> earlier = {};  // of its group's attributes that this row does not have
  };
  using Applications = std::vector<std::shared_ptr<const suite::Registration>>;

  // Those that are registered, by name. The same object as in the snapshot before, and the same
  // registrations in it, where nothing has changed. Never null.
  std::shared_ptr<const Applications> applications = std::make_shared<Applications>();
  // Those whose group is registered, by handle.
  std::deque<SourceState> sources;
};

// What the channel's thread counts apart from the table of counters, which has been brought up to
// date at the same moment.
struct Figures {
  RequestCounts requests;
  std::size_t deferrals = 0;
};

}  // namespace dch

#endif  // DCH_WEB_SNAPSHOT_H
