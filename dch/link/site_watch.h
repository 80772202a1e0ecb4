// site_watch.h: which other sites are there, and whether this site's name is its own.
#ifndef DCH_LINK_SITE_WATCH_H
#define DCH_LINK_SITE_WATCH_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dch/core/epoch.h"
#include "dch/core/site_state.h"
#include "dch/link/alive_message.h"

namespace dch {

// Decides from what the servers of all sites say of themselves. Knows no clock, no thread and no
// network: times are those that it is given, and never go back.
//
// A site is silent when it was not heard for three of its periods, and at least silentAfter. A
// restart takes less, and is nobody's business.
//
// Two servers may say to be the same site: a machine was cloned, or a name written twice. One of
// them has to stand aside, as others could not tell their rows apart from those of one that has
// lost some. Messages of a server that has ended may be late by any time, so another one counts
// only when it says that it hears this run. Of a newcomer and one that was there the newcomer
// stands aside, else the one with the lower run does. It takes up the name again when the other
// one was not heard for a term.
class SiteWatch {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  static constexpr std::size_t mostSites = 10'000;
  static constexpr std::chrono::seconds silentAfter{15};

  SiteWatch(std::string ownSite, const Epoch& ownRun);

  // The link has connected. This site is a newcomer, unless it stands aside, until it has spoken
  // and some seconds are over.
  void connected(TimePoint now);

  // isBack: it was silent. newRun: it was restarted, or is two servers. old: this was heard
  // already, or is what this run has said itself. aside: the site is another server, which was or
  // will be heard. otherOfThisName: look at isAside(). Where there is no room the site that has
  // been silent for longest is forgotten; noRoom: there is none.
  enum class Heard { known, appeared, isBack, newRun, old, aside, otherOfThisName, noRoom };
  Heard heard(const std::string& site, const AliveMessage& message, TimePoint now);

  // To be called every second. The sites that have become silent. A call that comes late begins all
  // terms anew: who stood still himself knows nothing of the others. So does a connection that was
  // away; when it stays away for silentAfter all sites become silent.
  std::vector<std::string> fallenSilent(TimePoint now, bool isConnected);

  // Another server has this site's name, and keeps it. Changes in heard() and fallenSilent().
  bool isAside() const { return _isAside; }
  // Another server that lives now has this site's name, whichever of them keeps it.
  bool hasRival() const;

  // What this site is to say of itself next. `stopping` is for the caller to say.
  struct Speech {
    std::chrono::milliseconds period{};
    // Not before then is it said what has changed: half of the period, as each message goes to all
    // sites, and when something changes at each of them that is to cost twice as much at most.
    std::chrono::milliseconds untilChanges{};
    AliveMessage::State state = AliveMessage::State::here;
    std::optional<Epoch> hears;
  };
  // To be called once for each time that this site speaks.
  Speech speak(TimePoint now);
  // Whether somebody waits for that: then before the period is over. True once, and once a second
  // at most.
  bool mustSpeakNow(TimePoint now);

  // Whether it was heard for so long as it takes to be silent, of one run, and no server of that
  // name has heard another one meanwhile: another one would be silent by now.
  // As of the last call that had a time. Of a site that is not known: false.
  bool isAlone(std::string_view site) const;
  // Whether it is one of them.
  bool knows(std::string_view site) const { return _sites.find(site) != _sites.end(); }
  // The other sites, by name.
  std::vector<SiteState> states() const;

 private:
  struct Run {
    Epoch epoch;
    std::uint64_t count = 0;
  };
  struct Site {
    std::vector<Run> runs;  // the one that was heard last comes first
    bool isReachable = true;
    bool isStopping = false;
    TimePoint since;
    TimePoint heardAt;
    TimePoint aloneFrom;
    std::chrono::milliseconds term{};
    std::string version;
    std::optional<std::int64_t> newest;
    std::optional<std::int64_t> published;
  };
  using Sites = std::map<std::string, Site, std::less<>>;
  // Another server of this site's name.
  struct Rival {
    Run run;
    AliveMessage::State state = AliveMessage::State::here;
    bool hearsThis = false;
    TimePoint heardAt;
    std::chrono::milliseconds term{};
  };

  Heard take(Site& site, const AliveMessage& message);
  Heard heardOfThisName(const AliveMessage& message);
  Rival* rivalOf(const AliveMessage& message);
  bool yieldsTo(const Rival& rival) const;
  bool isNameFree() const;
  void becomeNewcomer();
  void takeNameUpIfFree();
  std::optional<Epoch> nextHeard();
  std::chrono::milliseconds ownPeriod() const;
  bool makeRoom();
  bool isOver(TimePoint heardAt, std::chrono::milliseconds term) const;
  bool isAlone(const Site& site) const;

  const std::string _ownSite;
  const Epoch _ownRun;
  TimePoint _now;
  Sites _sites;
  TimePoint _nextRoom;  // not before then is a silent site looked for, to be forgotten
  // All terms begin here, or later.
  TimePoint _listeningSince;
  std::optional<TimePoint> _lastLook;
  std::optional<TimePoint> _awaySince;

  std::vector<Rival> _rivals;
  std::size_t _heardTurn = 0;
  bool _isAside = false;
  bool _isNewcomer = true;
  TimePoint _newcomerUntil;
  bool _isAsked = false;
  std::optional<TimePoint> _lastAnswer;
};

}  // namespace dch

#endif  // DCH_LINK_SITE_WATCH_H
