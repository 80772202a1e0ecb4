// provider_exchange.h: tells other sites of this one's providers, and asks them for theirs.
#ifndef DCH_LINK_PROVIDER_EXCHANGE_H
#define DCH_LINK_PROVIDER_EXCHANGE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "dch/core/epoch.h"
#include "dch/link/link_settings.h"
#include "dch/link/live_connection.h"
#include "dch/link/own_providers.h"
#include "dch/link/provider_inbox.h"
#include "dch/link/site_changes.h"
#include "dch/link/site_copies.h"
#include "dch/link/site_providers.h"

namespace dch {

// What the link's thread does for them. That thread alone.
class ProviderExchange {
 public:
  // `wake` wakes that thread, from any thread.
  ProviderExchange(const std::string& site, const Epoch& run,
                   std::shared_ptr<SiteProviders> providers, const std::function<void()>& wake);
  ~ProviderExchange() { end(); }
  ProviderExchange(const ProviderExchange&) = delete;
  ProviderExchange& operator=(const ProviderExchange&) = delete;

  // From now on sites ask and are asked. Throws LinkError.
  void begin(LiveConnection& connection);
  // They are not any more. To be called before the connection is gone.
  void end() noexcept;
  bool isOn() const { return _connection != nullptr; }

  // Takes what the channel tells, whether or not it is on. Throws std::bad_alloc: nothing is lost.
  void takeOwn();
  // Answers some questions, and asks some. Throws LinkError.
  void work();

  // Whether there is more to do now. If not the thread is woken for it.
  bool hasMore() const {
    return _ownNews || (isOn() && (!_questions->empty() || !_answers->empty()));
  }

  // What this site is to say next of what has changed. To be called for what is then said.
  OwnProviders::Changes changes() { return _own.changes(); }
  bool hasChanges() const { return _own.hasChanges(); }

  // What other sites have said.
  void heard(const SiteChanges& changes);
  void silent(const std::string& site) { _copies.silent(site, Clock::now()); }

  // Questions, and what sites said of their providers, that were refused.
  std::uint64_t refused() const;

 private:
  using Clock = std::chrono::steady_clock;

  // To which an answer has come.
  struct AnswerPlace {
    std::string site;
    std::uint64_t question = 0;
  };

  std::optional<AnswerPlace> placeOf(std::string_view subject) const;
  void answerSome();
  void answer(const ProviderMessage& question);
  void takeAnswers();
  void take(const ProviderMessage& answer);
  bool isFromWhoWasAsked(const AnswerPlace& place);
  void ask();

  const std::string _site;
  const Epoch _run;
  const std::shared_ptr<SiteProviders> _providers;
  const std::shared_ptr<ProviderInbox> _questions, _answers;
  OwnProviders _own;
  std::optional<ProviderNews> _ownNews;  // that is to be taken next
  SiteCopies _copies;
  LiveConnection* _connection = nullptr;
  std::string _answersTo;  // with a dot behind it
  std::optional<LiveConnection::Subscription> _asked, _answered;
  std::map<std::uint64_t, std::string> _sitesAsked;  // by their last questions
  unsigned _answeredInSecond = 0;
  Clock::time_point _secondFrom;
  std::uint64_t _unreadable = 0;
};

}  // namespace dch

#endif  // DCH_LINK_PROVIDER_EXCHANGE_H
