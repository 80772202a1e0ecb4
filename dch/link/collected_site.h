// collected_site.h: a site whose rows a hub collects, and what of it is still to be kept.
#ifndef DCH_LINK_COLLECTED_SITE_H
#define DCH_LINK_COLLECTED_SITE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dch/core/change.h"
#include "dch/core/epoch.h"
#include "dch/link/incoming_rows.h"
#include "dch/link/subject.h"

namespace dch {

// Whether its names are as long as names can be at most: nobody takes memory with them.
bool mayBeKept(const RowHeader& header, const RowSubject& subject);

// One thread.
class CollectedSite {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  // `kept`: what is in the store of it.
  explicit CollectedSite(std::string name, IncomingRows::State kept = {});

  const std::string& name() const { return _name; }

  // Which of them are kept. What is said of it below is changed through this.
  IncomingRows rows;

  // When the site was heard of last, by a row or an answer.
  TimePoint lastHeard{};
  // Of the last row of it that the first reader of the stream has come to.
  std::uint64_t lastSequence = 0;
  // Not before then is it asked again.
  TimePoint nextQuestion{};
  TimePoint nextLook{};  // without need
  // The server that is known as the only one of its name: what it has not is nowhere to be had.
  std::optional<Epoch> aloneRun;
  // What it has said when all its rows up to there were known: the number is that of its store.
  struct Told {
    Epoch run;
    std::int64_t upTo = 0;
  };
  std::optional<Told> told;
  bool isBusy = false;  // it is being asked, or its rows in the stream are read again

  // How far that run's store was when all that it had kept was collected, at least; nothing when
  // nothing is known of that run.
  std::optional<std::int64_t> collectedUpTo(const Epoch& run) const;

  // A row that `rows` wants kept.
  void keep(const RowHeader& header, const RowSubject& subject, std::string_view message);

  // What is to be kept and was not taken yet; nothing when there is none.
  std::optional<RemoteRows> takeUnkept();

 private:
  std::vector<RowName> changedNames() const;

  const std::string _name;
  IncomingRows::State _kept;  // or taken to be
  std::vector<RemoteRow> _unkept;
};

}  // namespace dch

#endif  // DCH_LINK_COLLECTED_SITE_H
