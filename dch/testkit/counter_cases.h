// counter_cases.h: for each counter a function that lets happen what it counts, and expects that it
// moves by exactly that.
#ifndef DCH_TESTKIT_COUNTER_CASES_H
#define DCH_TESTKIT_COUNTER_CASES_H

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <map>

#include "dch/core/counters.h"

namespace dch::testkit {

// The table when it is made, and what has become of it.
class CounterMoves {
 public:
  explicit CounterMoves(const Counters& counters) : _counters(counters) {
    for (const CounterDescription& each : counterDescriptions)
      _before[placeOf(each.counter)] = counters[each.counter];
  }

  std::int64_t of(Counter counter) const {
    return static_cast<std::int64_t>(_counters[counter] - _before[placeOf(counter)]);
  }

  // These have moved so far, and nothing else has.
  void expect(const std::map<Counter, std::int64_t>& moved) const {
    for (const CounterDescription& each : counterDescriptions) {
      const auto expected = moved.find(each.counter);
      EXPECT_EQ(of(each.counter), expected != moved.end() ? expected->second : 0) << each.name;
    }
  }

 private:
  static std::size_t placeOf(Counter counter) { return static_cast<std::size_t>(counter); }

  const Counters& _counters;
  std::array<std::uint64_t, static_cast<std::size_t>(Counter::count)> _before{};
};

namespace counter_cases {

void rowsReceived();
void rowsKept();
void pushed();
void pushesLost();
void subscribersGone();
void subscriptionsRefused();
void answersDropped();
void answersIgnored();
void changesNotKept();
void deferralsForgotten();
void resultsForgotten();
void waitersForgotten();
void actionsNotAllowed();
void actionsNotStarted();
void notAllowed();
void brokenMessages();
void datagramsThrownAway();
void emptyDatagrams();
void longAnswersGivenUp();
void connectionsRefused();
void acceptFailures();
void stalledConnections();
void crowdedConnections();
void logLinesDropped();
void webRequests();
void webRequestsRefused();
void webFailures();
void webConnectionsRefused();
void webConnectionsGivenUp();
void webAcceptFailures();
void liveEventsLost();
void liveClientsDropped();
void groupsWritten();
void changesKept();
void changesRefused();
void rowsRemoved();
void writeFailures();
void writeMicroseconds();
void linkRowsPublished();
void linkRowsTooLarge();
void linkRowsLost();
void linkRowsNoRoom();
void linkMessagesRefused();
void linkSiteNameRefused();
void linkLiveSent();
void linkLivePushed();
void linkLiveLost();
void linkLiveRefused();
void linkSubscriptionsRefused();
void linkHandlesRefused();
void linkQuestionsRefused();
void linkProvidersRefused();
void linkFailures();
void linkRowsCollected();
void linkRowsFetched();
void linkRowsAfterGaps();
void linkRowsRefused();
void applications();
void sources();
void sourcesOnline();
void subscriptions();
void connections();
void changesWaiting();
void webConnections();
void liveClients();
void linkConnected();
void linkChangesBehind();
void linkSites();
void linkSitesSilent();
void linkAside();

}  // namespace counter_cases

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_COUNTER_CASES_H
