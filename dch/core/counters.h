// counters.h: the table of what is counted: what has been done, everything that was refused,
// dropped or lost, and gauges of what is there.
#ifndef DCH_CORE_COUNTERS_H
#define DCH_CORE_COUNTERS_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace dch {

// A place that drops something without counting it is a defect. How requests are answered is
// counted apart, in RequestCounts.
enum class Counter : std::size_t {
  rowsReceived,
  rowsKept,
  pushed,
  pushesLost,
  subscribersGone,
  subscriptionsRefused,
  answersDropped,
  answersIgnored,
  changesNotKept,
  deferralsForgotten,
  resultsForgotten,
  waitersForgotten,
  actionsNotAllowed,
  actionsNotStarted,
  notAllowed,
  brokenMessages,
  datagramsThrownAway,
  emptyDatagrams,
  longAnswersGivenUp,
  connectionsRefused,
  acceptFailures,
  stalledConnections,
  crowdedConnections,
  logLinesDropped,
  // Of the page and what is behind it.
  webRequests,
  webRequestsRefused,
  webFailures,
  webConnectionsRefused,
  webConnectionsGivenUp,
  webAcceptFailures,
  liveEventsLost,
  liveClientsDropped,
  // Of the file that the state is kept in.
  groupsWritten,
  changesKept,
  changesRefused,
  rowsRemoved,
  writeFailures,
  writeMicroseconds,
  // Of the link with other servers.
  linkRowsPublished,
  linkRowsTooLarge,
  linkRowsLost,
  linkFailures,
  linkRowsCollected,
  linkRowsFetched,
  linkRowsAfterGaps,
  linkRowsRefused,
  linkRowsNoRoom,
  linkMessagesRefused,
  linkSiteNameRefused,
  linkLiveSent,
  linkLivePushed,
  linkLiveLost,
  linkLiveRefused,
  linkSubscriptionsRefused,
  linkHandlesRefused,
  linkQuestionsRefused,
  linkProvidersRefused,
  // From here on gauges.
  applications,
  sources,
  sourcesOnline,
  subscriptions,
  connections,
  changesWaiting,
  webConnections,
  liveClients,
  linkConnected,
  linkChangesBehind,
  linkSites,
  linkSitesSilent,
  linkAside,
  count
};

// A gauge goes down, too.
constexpr bool isGauge(Counter counter) {
  return counter >= Counter::applications;
}

struct CounterDescription {
  Counter counter;
  const char* name;  // as in the name of a metric
  const char* help;
};

// In the order of Counter.
inline constexpr CounterDescription counterDescriptions[] = {
    {Counter::rowsReceived, "rows_received", "messages with the code of a row, good and bad ones"},
    {Counter::rowsKept, "rows_kept", "rows that were kept and acknowledged"},
    {Counter::pushed, "pushed", "rows and status events handed to the system for a subscriber"},
    {Counter::pushesLost, "pushes_lost", "rows and status events that a subscriber lost"},
    {Counter::subscribersGone, "subscribers_gone",
     "subscribers that were gone, not allowed any more or servers, and were dropped"},
    {Counter::subscriptionsRefused, "subscriptions_refused", "subscriptions without room for them"},
    {Counter::answersDropped, "answers_dropped", "answers that could not be sent"},
    {Counter::answersIgnored, "answers_ignored", "datagrams that were answers themselves"},
    {Counter::changesNotKept, "changes_not_kept", "changes in order that could not be kept"},
    {Counter::deferralsForgotten, "deferrals_forgotten", "deferrals that newer ones pushed out"},
    {Counter::resultsForgotten, "results_forgotten",
     "results of actions that newer ones pushed out"},
    {Counter::waitersForgotten, "waiters_forgotten",
     "questions for a result whose connection closed before there was one"},
    {Counter::actionsNotAllowed, "actions_not_allowed",
     "starts of actions that were asked for from where none may be"},
    {Counter::actionsNotStarted, "actions_not_started",
     "starts of actions that came to nothing: not listed, running already, too many, or failed"},
    {Counter::notAllowed, "not_allowed",
     "datagrams and connections from where none are allowed, or from the server itself"},
    {Counter::brokenMessages, "broken_messages", "what was no whole message on a connection"},
    {Counter::datagramsThrownAway, "datagrams_thrown_away",
     "datagrams for which there was no room"},
    {Counter::emptyDatagrams, "empty_datagrams", "datagrams without a byte"},
    {Counter::longAnswersGivenUp, "long_answers_given_up",
     "answers of several datagrams whose client asked something else meanwhile"},
    {Counter::connectionsRefused, "connections_refused", "connections without room for them"},
    {Counter::acceptFailures, "accept_failures", "times that the system could not accept"},
    {Counter::stalledConnections, "stalled_connections", "connections ended as they stood still"},
    {Counter::crowdedConnections, "crowded_connections",
     "connections ended as the unfinished messages of all took too much memory"},
    {Counter::logLinesDropped, "log_lines_dropped",
     "lines that the log could not take, or should not"},
    {Counter::webRequests, "web_requests", "requests for the page and what is behind it"},
    {Counter::webRequestsRefused, "web_requests_refused",
     "such requests for another host, or without the token"},
    {Counter::webFailures, "web_failures", "such requests that the server could not do"},
    {Counter::webConnectionsRefused, "web_connections_refused",
     "connections for the page without room for them"},
    {Counter::webConnectionsGivenUp, "web_connections_given_up",
     "connections for the page that asked or read nothing, and gave way to others"},
    {Counter::webAcceptFailures, "web_accept_failures",
     "times that the system could not accept one for the page"},
    {Counter::liveEventsLost, "live_events_lost",
     "rows and changes of status that live pages lost, and find in the store"},
    {Counter::liveClientsDropped, "live_clients_dropped",
     "live pages that were ended as they did not read"},
    {Counter::groupsWritten, "groups_written", "times that changes were written to the state file"},
    {Counter::changesKept, "changes_kept", "changes that were written to the state file"},
    {Counter::changesRefused, "changes_refused", "changes that the state file did not take"},
    {Counter::rowsRemoved, "rows_removed", "old rows that were removed from the state file"},
    {Counter::writeFailures, "write_failures", "failures to write the state file"},
    {Counter::writeMicroseconds, "write_microseconds", "time spent in writing the state file"},
    {Counter::linkRowsPublished, "link_rows_published", "rows that the link has published"},
    {Counter::linkRowsTooLarge, "link_rows_too_large",
     "rows that are too large for the link and were left out"},
    {Counter::linkRowsLost, "link_rows_lost",
     "rows that retention removed before the link had published them"},
    {Counter::linkFailures, "link_failures", "times that the link was lost, or could not be made"},
    {Counter::linkRowsCollected, "link_rows_collected",
     "rows of other sites that this hub has kept"},
    {Counter::linkRowsFetched, "link_rows_fetched",
     "such rows that it has asked the sites themselves for"},
    {Counter::linkRowsAfterGaps, "link_rows_after_gaps",
     "rows of other sites that follow others which are nowhere to be had"},
    {Counter::linkRowsRefused, "link_rows_refused",
     "messages of the link that are no rows, or of too many sites"},
    {Counter::linkRowsNoRoom, "link_rows_no_room",
     "rows of other sites that were left out for want of room for their groups or sources"},
    {Counter::linkMessagesRefused, "link_messages_refused",
     "messages of the link that say nothing of a site, or of too many sites"},
    {Counter::linkSiteNameRefused, "link_site_name_refused",
     "times that another server was found to have this site's name"},
    {Counter::linkLiveSent, "link_live_sent",
     "rows that were sent to subscribers of other sites as they came"},
    {Counter::linkLivePushed, "link_live_pushed",
     "rows of other sites that were pushed to subscribers here"},
    {Counter::linkLiveLost, "link_live_lost",
     "rows on their way between a site and subscribers of another one that were lost, at either "
     "end"},
    {Counter::linkLiveRefused, "link_live_refused",
     "messages of other sites to subscribers here that are no rows"},
    {Counter::linkSubscriptionsRefused, "link_subscriptions_refused",
     "groups that subscribers want and other sites are not asked for, as there are too many"},
    {Counter::linkHandlesRefused, "link_handles_refused",
     "rows of other sites that came to no subscriber, as there is no room for their sources"},
    {Counter::linkQuestionsRefused, "link_questions_refused",
     "questions of other sites for providers, and answers, that cannot be read or had no room"},
    {Counter::linkProvidersRefused, "link_providers_refused",
     "applications and sources of other sites that were left out, as there is no room for them"},
    {Counter::applications, "applications", "applications that are registered"},
    {Counter::sources, "sources", "sources that have a handle"},
    {Counter::sourcesOnline, "sources_online", "sources that are on line"},
    {Counter::subscriptions, "subscriptions", "subscriptions to rows and to status"},
    {Counter::connections, "connections", "stream connections that are open"},
    {Counter::changesWaiting, "changes_waiting", "changes that wait to be kept or passed on"},
    {Counter::webConnections, "web_connections", "connections for the page that are open"},
    {Counter::liveClients, "live_clients", "those of them that are told rows and status live"},
    {Counter::linkConnected, "link_connected",
     "1 while there is a link with other servers, else 0"},
    {Counter::linkChangesBehind, "link_changes_behind",
     "rows and other changes that were kept and wait for the link, or are passed by it"},
    {Counter::linkSites, "link_sites", "other sites that this server has heard"},
    {Counter::linkSitesSilent, "link_sites_silent",
     "those of them that were not heard for a while"},
    {Counter::linkAside, "link_aside",
     "1 while another server has this site's name and keeps it, else 0"},
};

constexpr bool describesEveryCounter() {
  std::size_t number = 0;
  for (const CounterDescription& each : counterDescriptions)
    if (each.counter != Counter{number++}) return false;
  return Counter{number} == Counter::count;
}
static_assert(describesEveryCounter());

// One thread writes, any thread reads.
class Counters {
 public:
  void add(Counter counter, std::uint64_t number = 1) {
    std::atomic<std::uint64_t>& value = _values[static_cast<std::size_t>(counter)];
    value.store(value.load(std::memory_order_relaxed) + number, std::memory_order_relaxed);
  }
  // What somebody else keeps count of.
  void set(Counter counter, std::uint64_t value) {
    _values[static_cast<std::size_t>(counter)].store(value, std::memory_order_relaxed);
  }
  std::uint64_t operator[](Counter counter) const {
    return _values[static_cast<std::size_t>(counter)].load(std::memory_order_relaxed);
  }

 private:
  std::array<std::atomic<std::uint64_t>, static_cast<std::size_t>(Counter::count)> _values{};
};

}  // namespace dch

#endif  // DCH_CORE_COUNTERS_H
