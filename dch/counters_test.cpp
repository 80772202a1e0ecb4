// Every counter and gauge moves, by exactly what happened: one without a case does not compile.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "dch/testkit/counter_cases.h"

namespace dch {
namespace {

namespace cases = testkit::counter_cases;

struct CounterCase {
  Counter counter;
  void (*happen)();
};

// Where there is no server of NATS to test with there are no cases of the link.
#ifdef ZORD410_TESTS_LINK
#define OF_LINK(name) cases::name
#else
#define OF_LINK(name) nullptr
#endif

// In the order of Counter.
constexpr CounterCase counterCases[] = {
    {Counter::rowsReceived, cases::rowsReceived},
    {Counter::rowsKept, cases::rowsKept},
    {Counter::pushed, cases::pushed},
    {Counter::pushesLost, cases::pushesLost},
    {Counter::subscribersGone, cases::subscribersGone},
    {Counter::subscriptionsRefused, cases::subscriptionsRefused},
    {Counter::answersDropped, cases::answersDropped},
    {Counter::answersIgnored, cases::answersIgnored},
    {Counter::changesNotKept, cases::changesNotKept},
    {Counter::deferralsForgotten, cases::deferralsForgotten},
    {Counter::resultsForgotten, cases::resultsForgotten},
    {Counter::waitersForgotten, cases::waitersForgotten},
    {Counter::actionsNotAllowed, cases::actionsNotAllowed},
    {Counter::actionsNotStarted, cases::actionsNotStarted},
    {Counter::notAllowed, cases::notAllowed},
    {Counter::brokenMessages, cases::brokenMessages},
    {Counter::datagramsThrownAway, cases::datagramsThrownAway},
    {Counter::emptyDatagrams, cases::emptyDatagrams},
    {Counter::longAnswersGivenUp, cases::longAnswersGivenUp},
    {Counter::connectionsRefused, cases::connectionsRefused},
    {Counter::acceptFailures, cases::acceptFailures},
    {Counter::stalledConnections, cases::stalledConnections},
    {Counter::crowdedConnections, cases::crowdedConnections},
    {Counter::logLinesDropped, cases::logLinesDropped},
    {Counter::webRequests, cases::webRequests},
    {Counter::webRequestsRefused, cases::webRequestsRefused},
    {Counter::webFailures, cases::webFailures},
    {Counter::webConnectionsRefused, cases::webConnectionsRefused},
    {Counter::webConnectionsGivenUp, cases::webConnectionsGivenUp},
    {Counter::webAcceptFailures, cases::webAcceptFailures},
    {Counter::liveEventsLost, cases::liveEventsLost},
    {Counter::liveClientsDropped, cases::liveClientsDropped},
    {Counter::groupsWritten, cases::groupsWritten},
    {Counter::changesKept, cases::changesKept},
    {Counter::changesRefused, cases::changesRefused},
    {Counter::rowsRemoved, cases::rowsRemoved},
    {Counter::writeFailures, cases::writeFailures},
    {Counter::writeMicroseconds, cases::writeMicroseconds},
    {Counter::linkRowsPublished, OF_LINK(linkRowsPublished)},
    {Counter::linkRowsTooLarge, OF_LINK(linkRowsTooLarge)},
    {Counter::linkRowsLost, cases::linkRowsLost},
    {Counter::linkFailures, OF_LINK(linkFailures)},
    {Counter::linkRowsCollected, OF_LINK(linkRowsCollected)},
    {Counter::linkRowsFetched, OF_LINK(linkRowsFetched)},
    {Counter::linkRowsAfterGaps, OF_LINK(linkRowsAfterGaps)},
    {Counter::linkRowsRefused, OF_LINK(linkRowsRefused)},
    {Counter::linkRowsNoRoom, cases::linkRowsNoRoom},
    {Counter::linkMessagesRefused, OF_LINK(linkMessagesRefused)},
    {Counter::linkSiteNameRefused, OF_LINK(linkSiteNameRefused)},
    {Counter::linkLiveSent, OF_LINK(linkLiveSent)},
    {Counter::linkLivePushed, OF_LINK(linkLivePushed)},
    {Counter::linkLiveLost, OF_LINK(linkLiveLost)},
    {Counter::linkLiveRefused, OF_LINK(linkLiveRefused)},
    {Counter::linkSubscriptionsRefused, OF_LINK(linkSubscriptionsRefused)},
    {Counter::linkHandlesRefused, OF_LINK(linkHandlesRefused)},
    {Counter::linkQuestionsRefused, OF_LINK(linkQuestionsRefused)},
    {Counter::linkProvidersRefused, OF_LINK(linkProvidersRefused)},
    {Counter::applications, cases::applications},
    {Counter::sources, cases::sources},
    {Counter::sourcesOnline, cases::sourcesOnline},
    {Counter::subscriptions, cases::subscriptions},
    {Counter::connections, cases::connections},
    {Counter::changesWaiting, cases::changesWaiting},
    {Counter::webConnections, cases::webConnections},
    {Counter::liveClients, cases::liveClients},
    {Counter::linkConnected, OF_LINK(linkConnected)},
    {Counter::linkChangesBehind, OF_LINK(linkChangesBehind)},
    {Counter::linkSites, OF_LINK(linkSites)},
    {Counter::linkSitesSilent, OF_LINK(linkSitesSilent)},
    {Counter::linkAside, OF_LINK(linkAside)},
};

constexpr bool everyCounterHasACase() {
  std::size_t number = 0;
  for (const CounterCase& each : counterCases)
    if (each.counter != Counter{number++}) return false;
  return Counter{number} == Counter::count;
}
static_assert(everyCounterHasACase());

std::vector<CounterCase> casesHere() {
  std::vector<CounterCase> here;
  for (const CounterCase& each : counterCases)
    if (each.happen != nullptr) here.push_back(each);
  return here;
}

class CountersTest : public testing::TestWithParam<CounterCase> {};

TEST_P(CountersTest, MovesByWhatHappened) {
  GetParam().happen();
}

INSTANTIATE_TEST_SUITE_P(Each, CountersTest, testing::ValuesIn(casesHere()),
                         [](const testing::TestParamInfo<CounterCase>& each) {
                           const auto counter = static_cast<std::size_t>(each.param.counter);
                           return std::string(counterDescriptions[counter].name);
                         });

}  // namespace
}  // namespace dch
