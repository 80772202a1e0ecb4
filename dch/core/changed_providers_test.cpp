#include "dch/core/changed_providers.h"

#include <map>
#include <random>
#include <set>

#include "dch/testkit/core_test.h"
#include "zordchcl/messages.h"

namespace dch {
namespace {

using testkit::offlineMessage;
using testkit::onlineMessage;
using testkit::registerMessage;
using testkit::unregisterMessage;

// What is registered, and on line, as a text each.
using KnownFacts = std::set<std::string>;

KnownFacts knownFactsOf(const Registry& registry) {
  KnownFacts facts;
  for (const Application* each : registry.applications()) facts.insert(each->registration.text);
  for (const Source* each = nullptr;
       (each = registry.nextOnline(each != nullptr ? each->handle : 0)) != nullptr;) {
    const SourceNames names = each->names();
    facts.insert(joinNames(names.application, names.group, names.source));
  }
  return facts;
}

// Knows what it is told.
class ProvidersListener {
 public:
  void hear(const ProviderNews& news) {
    EXPECT_TRUE(news.site.empty());
    if (news.kind == ProviderNews::Kind::first) {
      ++beginnings;
      _unconfirmed = _known;
    }
    for (const ProviderFact& each : news.facts) hear(each);
    if (!news.isAll) return;
    for (const auto& [key, text] : _unconfirmed) _known.erase(key);
    _unconfirmed.clear();
  }

  KnownFacts facts() const {
    KnownFacts facts;
    for (const auto& [key, text] : _known) facts.insert(text);
    return facts;
  }

  int beginnings = 0;

 private:
  void hear(const ProviderFact& fact) {
    const bool isOfSource =
        fact.kind == ProviderFact::Kind::online || fact.kind == ProviderFact::Kind::offline;
    const std::string key =
        isOfSource ? joinNames(fact.application, fact.group, fact.source) : fact.application;
    _unconfirmed.erase(key);
    if (fact.kind == ProviderFact::Kind::unregistered || fact.kind == ProviderFact::Kind::offline) {
      _known.erase(key);
    } else {
      _known[key] = isOfSource ? key : fact.registration->text;
    }
  }

  std::map<std::string, std::string> _known;
  std::map<std::string, std::string> _unconfirmed;
};

class ChangedProvidersTest : public CoreTest {
 protected:
  ChangedProvidersTest() { receiveObserved(registerMessage()); }

  void receiveObserved(const std::string& message) { _observed.receive({message, client(), 17}); }

  std::optional<ProviderNews> take(std::size_t most = 100) {
    return _providers.take(_observed.registry(), most);
  }

  // Hears all that there is now.
  void hearAll(std::size_t most = 100) {
    while (const auto news = take(most)) _listener.hear(*news);
  }

  ChangedProviders _providers;
  ProvidersListener _listener;
  Core _observed{
      {_answers, _rowsOut, *_store, _timer, _programs, &_providers}, _actionRules, _counters, _log};
};

TEST_F(ChangedProvidersTest, BeginsWithAllThatIsThere) {
  for (const char* group : {"load", "disk"}) receiveObserved(onlineMessage("HOSTMON", group, "s"));
  receiveObserved(onlineMessage("HOSTMON", "load", ""));
  receiveObserved(offlineMessage(2));
  const auto news = take();
  ASSERT_TRUE(news);
  EXPECT_EQ(news->kind, ProviderNews::Kind::first);
  EXPECT_TRUE(news->isAll);
  EXPECT_EQ(news->facts.size(), 3u);
  _listener.hear(*news);
  EXPECT_EQ(_listener.facts(),
            (KnownFacts{testkit::hostmonRegistration, joinNames("HOSTMON", "load", "s"),
                        joinNames("HOSTMON", "load", "")}));
  EXPECT_FALSE(take());
}

TEST_F(ChangedProvidersTest, ThenTellsWhatHasChangedAsItIsNow) {
  hearAll();
  receiveObserved(onlineMessage("HOSTMON", "load", "s"));
  receiveObserved(offlineMessage(1));
  receiveObserved(onlineMessage("HOSTMON", "load", "s"));
  auto news = take();
  ASSERT_TRUE(news);
  EXPECT_EQ(news->kind, ProviderNews::Kind::more);
  EXPECT_FALSE(news->isAll);
  ASSERT_EQ(news->facts.size(), 1u);
  EXPECT_EQ(news->facts[0].kind, ProviderFact::Kind::online);
  EXPECT_FALSE(take());
  receiveObserved(unregisterMessage("HOSTMON"));
  hearAll();
  EXPECT_TRUE(_listener.facts().empty());
  EXPECT_EQ(_listener.beginnings, 1);
}

TEST_F(ChangedProvidersTest, TellsSomeAtATime) {
  for (int i = 0; i < 5; ++i)
    receiveObserved(onlineMessage("HOSTMON", "load", "s" + std::to_string(i)));
  std::size_t pieces = 0;
  for (; const auto news = take(2); ++pieces) {
    EXPECT_LE(news->facts.size(), 2u);
    EXPECT_EQ(news->kind == ProviderNews::Kind::first, pieces == 0);
    _listener.hear(*news);
  }
  EXPECT_GE(pieces, 4u);
  EXPECT_EQ(_listener.facts(), knownFactsOf(_observed.registry()));
}

TEST_F(ChangedProvidersTest, ARegistrationWithAnotherTextOrLessGroupsIsTold) {
  receiveObserved(onlineMessage("HOSTMON", "disk", "s"));
  hearAll();
  const std::string text = "appl:HOSTMON,HMN;type:SOCK;group:load;attr:load1,D,16;";
  receiveObserved(registerMessage(text));
  hearAll();
  EXPECT_EQ(_listener.facts(), KnownFacts{text});
}

TEST_F(ChangedProvidersTest, BeginsAnewForWhoHasLostSomething) {
  hearAll();
  receiveObserved(onlineMessage("HOSTMON", "load", "lost"));
  take();
  _providers.beginAnew();
  receiveObserved(unregisterMessage("HOSTMON"));
  hearAll();
  EXPECT_TRUE(_listener.facts().empty());
  EXPECT_EQ(_listener.beginnings, 2);
}

TEST_F(ChangedProvidersTest, BeginsAnewWhenTooManyNamesWait) {
  hearAll();
  for (std::size_t i = 0; i < ChangedProviders::mostNames; ++i)
    _providers.statusChanged({"HOSTMON", "load", std::to_string(i)}, DCH_REQUEST_ONLINE);
  auto news = take();
  ASSERT_TRUE(news);
  EXPECT_EQ(news->kind, ProviderNews::Kind::more) << "that many have room";
  for (std::size_t i = 0; i <= ChangedProviders::mostNames; ++i)
    _providers.statusChanged({"HOSTMON", "load", std::to_string(i)}, DCH_REQUEST_ONLINE);
  hearAll();
  EXPECT_EQ(_listener.beginnings, 2);
  EXPECT_EQ(_listener.facts(), knownFactsOf(_observed.registry()));
}

TEST_F(ChangedProvidersTest, LeadsToWhatIsThereWhateverChangesOnTheWay) {
  std::mt19937 random(42);
  const auto below = [&](unsigned end) { return static_cast<unsigned>(random() % end); };
  const auto name = [&](const char* start, unsigned end) {
    return start + std::to_string(below(end));
  };
  for (int round = 0; round < 200; ++round) {
    if (round % 20 == 10) _providers.beginAnew();
    for (int step = 0; step < 40; ++step) {
      const std::string application = name("APPL", 4);
      const unsigned kind = below(10);
      if (kind < 2) {
        std::string text = "appl:" + application + ",APP;type:SOCK;group:g0;attr:a,N,4;";
        if (below(2) == 0) text += "group:g1;attr:b,N,4;";
        receiveObserved(registerMessage(text, application, "APP"));
      } else if (kind < 3) {
        receiveObserved(unregisterMessage(application));
      } else if (kind < 7) {
        receiveObserved(onlineMessage(application, name("g", 2), name("s", 5)));
      } else if (kind < 9) {
        receiveObserved(offlineMessage(static_cast<ZORA_Long>(1 + below(40))));
      } else if (const auto news = take(1 + below(10))) {
        _listener.hear(*news);
      }
    }
    if (below(3) != 0) continue;
    hearAll(1 + below(10));
    ASSERT_EQ(_listener.facts(), knownFactsOf(_observed.registry())) << "round " << round;
  }
}

}  // namespace
}  // namespace dch
