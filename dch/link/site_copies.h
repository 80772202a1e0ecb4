// site_copies.h: what is to be asked of other sites, so that what they have is known here.
#ifndef DCH_LINK_SITE_COPIES_H
#define DCH_LINK_SITE_COPIES_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "dch/core/epoch.h"
#include "dch/link/copy_pace.h"
#include "dch/link/known_message.h"
#include "dch/link/provider_news_sink.h"
#include "dch/link/shared_registrations.h"
#include "dch/link/site_changes.h"

namespace dch {

// Follows what each site says of its providers, and passes it on. Knows no clock, no thread and no
// network: times are those that it is given, and never go back.
//
// A site numbers its revisions. A copy of all that it has is asked for piece by piece, each as of
// the revision of its answer; what a site says of its changes leads from one revision to a later
// one. Both say what is so then, not what has been done: so changes are good when they begin at or
// before the revision that is known here, and a piece when it is not older than that. Whatever is
// missing in between, for any reason, ends in another copy. So everybody may lose everything.
//
// Whatever comes takes bounded memory: a site's facts go on to the sink at once. Who says a new
// run, or something else that needs a copy, again and again is asked less and less often.
class SiteCopies {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  static constexpr std::size_t mostSites = 10'000;
  static constexpr std::size_t mostUnderWay = 8;  // questions
  static constexpr unsigned mostQuestionsOfSecond = 500;
  static constexpr std::chrono::seconds patience{2};         // with a question
  static constexpr std::chrono::seconds leftAlone{60};       // who says what cannot be read
  static constexpr std::size_t mostFactsOfCopy = 1'000'000;  // more cannot be read, either
  static constexpr std::size_t mostBytesOfText = 65'536;     // likewise

  // The sink has to outlive it.
  SiteCopies(std::string ownSite, ProviderNewsSink& sink);

  // What was heard of a site. What is said in this site's own name is ignored.
  void heard(const SiteChanges& changes, TimePoint now) noexcept;
  // It has become silent.
  void silent(std::string_view site, TimePoint now) noexcept;

  struct Question {
    std::string site;
    std::string key;           // what comes behind it is asked for
    std::uint64_t number = 0;  // no two have the same
  };
  // What is to be asked now; half of the questions under way at most are for sites that have not
  // answered their last one. To be called until there is nothing more, after each answer, and
  // again and again: some times in a second while something may have to be asked again.
  std::optional<Question> nextQuestion(TimePoint now) noexcept;
  // The answer to the question of that number. One that comes too late is ignored.
  void answered(std::uint64_t question, const KnownHeader& header, std::string_view text,
                TimePoint now) noexcept;
  // There will be none, or it was none.
  void unanswered(std::uint64_t question, TimePoint now) noexcept;

  // How often a site has said what could not be read.
  std::uint64_t refused() const { return _refused; }

 private:
  struct Site;
  // The sites of which something is to be done, by when. A site that moves from one to another
  // takes its place along, so that it needs no memory for it.
  using Turns = std::multimap<TimePoint, Site*>;

  struct Site {
    // unknown: a copy is to begin. copying: it has. silent: or it has said for long that it says
    // nothing.
    enum class State { unknown, copying, following, silent };

    std::string_view name;
    State state = State::unknown;
    Epoch run;
    // While copying and following: what was told leads up to it. Else the newest that it has said.
    std::uint64_t revision = 0;
    TimePoint currentAt;      // it has said this revision or a higher one, while that is so
    TimePoint saysNothingAt;  // since it says nothing
    bool isTold = false;      // the sink has something of it
    // Of a copy.
    std::string key;             // of its last line that was told
    bool hasGap = false;         // some changes meanwhile are not known
    std::size_t facts = 0;       // that were told
    std::uint64_t question = 0;  // its last one; only while that is under way
    std::uint64_t revisionWhenAsked = 0;
    bool hasFailed = false;  // to answer the last one
    CopyPace pace;

    Turns* in = nullptr;  // where its turn is; null: it is resting
    Turns::iterator turn;
    Turns::node_type resting;
  };
  using Sites = std::map<std::string, Site, std::less<>>;

  Site* find(std::string_view name);
  Site* add(const std::string& name, TimePoint now);
  bool makeRoom(TimePoint now);
  void move(Site& site, Turns* turns, TimePoint at);
  void rest(Site& site);

  void take(Site& site, const SiteChanges& changes, TimePoint now);
  void follow(Site& site, const SiteChanges& changes, TimePoint now);
  void hearNothing(Site& site, TimePoint now);
  void forget(Site& site);
  void begin(Site& site, TimePoint now);
  void wantCopy(Site& site, TimePoint now);
  void leaveAlone(Site& site, TimePoint now);
  void becomeSilent(Site& site, TimePoint now);
  void tellSilence(Site& site, TimePoint now);

  void giveUpWaiting(TimePoint now);
  void fail(Site& site, TimePoint now);
  bool mayAsk(TimePoint now);
  bool mayFail(const Site& site) const;
  Question ask(Site& site, TimePoint now);
  Site* endQuestion(std::uint64_t question);
  bool isGood(Site& site, const KnownHeader& header, TimePoint now);
  void takePiece(Site& site, bool isAll, std::string_view text, TimePoint now);
  bool tell(Site& site, ProviderNews::Kind kind, std::vector<ProviderFact> facts = {},
            bool isAll = false);

  const std::string _ownSite;
  ProviderNewsSink& _sink;
  SharedRegistrations _registrations;
  Sites _sites;
  Turns _waiting;
  Turns _underWay;  // by when the answer has to be there
  std::uint64_t _questions = 0;
  TimePoint _secondFrom = TimePoint::min();
  unsigned _questionsOfSecond = 0;
  TimePoint _nextRoom = TimePoint::min();  // not before then is a silent site looked for
  std::uint64_t _refused = 0;
};

}  // namespace dch

#endif  // DCH_LINK_SITE_COPIES_H
