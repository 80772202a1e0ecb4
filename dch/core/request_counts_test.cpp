// How each request is counted by what it is answered.
#include "dch/core/request_counts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "dch/testkit/core_test.h"
#include "tests/support/messages.h"
#include "zordchcl/messages.h"

namespace dch {
namespace {

using testkit::actionMessage;
using testkit::actionResultsMessage;
using testkit::catalogueMessage;
using testkit::dataMessage;
using testkit::deferralMessage;
using testkit::offlineMessage;
using testkit::onlineMessage;
using testkit::registerMessage;
using testkit::statusSubscribeMessage;
using testkit::subscribeMessage;
using testkit::unregisterMessage;

struct CountedRequest {
  short code;
  DCH_Status status;
  std::string bytes;
  bool isKept = true;  // if there is something to keep
};

// The same with a byte behind its last field.
std::string malformed(const std::string& message) {
  return testkit::withLengthWord(message + 'x', static_cast<std::uint32_t>(message.size() + 1));
}

// What each kind of request can come to, where host1 is on line with handle 1, action 7 has ended
// and action 8 runs.
std::vector<CountedRequest> countedRequests() {
  const std::string online = onlineMessage("HOSTMON", "load", "host2");
  const std::string row = dataMessage(1, {{"load1", 'D', "1"}});
  std::vector<CountedRequest> all{
      {DCH_REQUEST_REGISTER, DCH_STATUS_OK, registerMessage()},
      {DCH_REQUEST_REGISTER, DCH_STATUS_NOT_STORED, registerMessage(), false},
      {DCH_REQUEST_ONLINE, DCH_STATUS_OK, online},
      {DCH_REQUEST_ONLINE, DCH_STATUS_NOT_STORED, online, false},
      {DCH_REQUEST_ONLINE, DCH_STATUS_UNKNOWN_APPLICATION, onlineMessage("NONE", "load", "host1")},
      {DCH_REQUEST_ONLINE, DCH_STATUS_UNKNOWN_GROUP, onlineMessage("HOSTMON", "none", "host1")},
      {DCH_REQUEST_UNREGISTER, DCH_STATUS_OK, unregisterMessage("HOSTMON")},
      {DCH_REQUEST_UNREGISTER, DCH_STATUS_NOT_STORED, unregisterMessage("HOSTMON"), false},
      {DCH_REQUEST_UNREGISTER, DCH_STATUS_UNKNOWN_APPLICATION, unregisterMessage("NONE")},
      {DCH_REQUEST_OFFLINE, DCH_STATUS_OK, offlineMessage(1)},
      {DCH_REQUEST_OFFLINE, DCH_STATUS_NOT_STORED, offlineMessage(1), false},
      {DCH_REQUEST_OFFLINE, DCH_STATUS_UNKNOWN_HANDLE, offlineMessage(2)},
      {DCH_REQUEST_DATA, DCH_STATUS_OK, row},
      {DCH_REQUEST_DATA, DCH_STATUS_NOT_STORED, row, false},
      {DCH_REQUEST_DATA, DCH_STATUS_UNKNOWN_ATTRIBUTE, dataMessage(1, {{"none", 'D', "1"}})},
      {DCH_REQUEST_DATA, DCH_STATUS_UNKNOWN_HANDLE, dataMessage(2)},
      {DCH_REQUEST_APPLICATIONS, DCH_STATUS_OK, catalogueMessage(DCH_REQUEST_APPLICATIONS)},
      {DCH_REQUEST_HELP, DCH_STATUS_OK, catalogueMessage(DCH_REQUEST_HELP, "HOSTMON")},
      {DCH_REQUEST_ATTRIBUTES, DCH_STATUS_OK, catalogueMessage(DCH_REQUEST_ATTRIBUTES, "NONE")},
      {DCH_REQUEST_DATA_SUBSCRIPTION, DCH_STATUS_OK, subscribeMessage("HOSTMON", "load")},
      {DCH_REQUEST_STATUS_SUBSCRIPTION, DCH_STATUS_OK, statusSubscribeMessage()},
      {DCH_REQUEST_ACTION, DCH_STATUS_OK, actionMessage("succeed", 1)},
      {DCH_REQUEST_ACTION, DCH_STATUS_OK, actionMessage("none", 1)},
      {DCH_REQUEST_ACTION, DCH_STATUS_NOT_STORED, actionMessage("succeed", 1), false},
      {DCH_REQUEST_ACTION_RESULTS, DCH_STATUS_OK, actionResultsMessage(7)},
      {DCH_REQUEST_ACTION_RESULTS, DCH_STATUS_UNKNOWN_ACTION, actionResultsMessage(6)},
      {DCH_REQUEST_DEFER_REPORT, DCH_STATUS_OK, deferralMessage(1)},
      {DCH_REQUEST_DEFER_REPORT, DCH_STATUS_NOT_STORED, deferralMessage(1), false},
      {0, DCH_STATUS_MALFORMED, catalogueMessage(0x0fff)},
      {0, DCH_STATUS_MALFORMED, "x"},
  };
  const std::vector<CountedRequest> good = all;
  for (const CountedRequest& each : good)
    if (each.status == DCH_STATUS_OK)
      all.push_back({each.code, DCH_STATUS_MALFORMED, malformed(each.bytes)});
  all.push_back({DCH_REQUEST_APPLICATIONS, DCH_STATUS_MALFORMED,
                 malformed(catalogueMessage(DCH_REQUEST_APPLICATIONS, "HOSTMON"))});
  return all;
}

class RequestCountsTest : public CoreTest {
 protected:
  RequestCountsTest() : CoreTest(std::make_unique<testkit::SlowStore>()) {
    store().concludeAll();
    receive(onlineMessage("HOSTMON", "load", "host1"));
    for (const ZORA_Long id : {7, 8}) receive(actionMessage("last", id));
    store().concludeAll();
    _core.programEnded(7, 3, 18);
    store().concludeAll();
  }

  testkit::SlowStore& store() { return static_cast<testkit::SlowStore&>(*_store); }

  std::uint64_t total() const {
    std::uint64_t sum = 0;
    for (const RequestType& type : requestTypes())
      for (const std::uint64_t count : _core.requestCounts().of(type)) sum += count;
    return sum;
  }

  // Expects that the request counts once, as what it is answered.
  void expectCounted(const CountedRequest& request) {
    const std::uint64_t before = requestCount(request.code, request.status), all = total();
    receive(request.bytes);
    store().concludeAll(request.isKept);
    EXPECT_EQ(requestCount(request.code, request.status) - before, 1u)
        << requestTypeOf(request.code).name << ": " << DCH_statusText(request.status);
    EXPECT_EQ(total() - all, 1u) << requestTypeOf(request.code).name;
  }
};

class EachRequestCountsTest : public RequestCountsTest,
                              public testing::WithParamInterface<CountedRequest> {};

TEST_P(EachRequestCountsTest, OnceAsWhatItIsAnswered) {
  expectCounted(GetParam());
}

INSTANTIATE_TEST_SUITE_P(All, EachRequestCountsTest, testing::ValuesIn(countedRequests()));

TEST(RequestCountsTableTest, EveryKindOfRequestAndEveryStatusOfTheServerIsInIt) {
  std::set<std::string> kinds;
  std::set<ZORA_Long> statuses;
  for (const CountedRequest& each : countedRequests()) {
    kinds.insert(requestTypeOf(each.code).name);
    statuses.insert(each.status);
  }
  for (const RequestType& type : requestTypes()) EXPECT_TRUE(kinds.contains(type.name));
  for (const DCH_StatusEntry& each : DCH_statusTable) {
    const bool isOfAServer = each.number == DCH_STATUS_OK || each.number >= DCH_STATUS_MALFORMED;
    EXPECT_EQ(statuses.contains(each.number), isOfAServer) << each.text;
  }
}

TEST_F(RequestCountsTest, AnActionsResultCountsWhenItIsTold) {
  receive(actionResultsMessage(8), client(1));
  receive(actionResultsMessage(8), client(1));
  receive(actionResultsMessage(8), client(2));
  EXPECT_EQ(requestCount(DCH_REQUEST_ACTION_RESULTS), 0u);
  _core.programEnded(8, 3, 18);
  store().concludeAll();
  EXPECT_EQ(requestCount(DCH_REQUEST_ACTION_RESULTS), 2u);
}

TEST_F(RequestCountsTest, WhatWaitsForAChangeCountsWhenItIsDone) {
  receive(unregisterMessage("HOSTMON"));
  receive(onlineMessage("HOSTMON", "load", "host3"));
  EXPECT_EQ(requestCount(DCH_REQUEST_ONLINE, DCH_STATUS_UNKNOWN_APPLICATION), 0u);
  store().concludeAll();
  EXPECT_EQ(requestCount(DCH_REQUEST_ONLINE, DCH_STATUS_UNKNOWN_APPLICATION), 1u);
}

}  // namespace
}  // namespace dch
