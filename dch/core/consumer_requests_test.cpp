// The requests of consumers, and what status subscribers are told of providers.
#include <gtest/gtest.h>

#include "dch/testkit/core_test.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/registry_changes.h"
#include "zordchcl/messages.h"

namespace dch {
namespace {

using testkit::actionMessage;
using testkit::actionResultsMessage;
using testkit::catalogueMessage;
using testkit::deferralMessage;
using testkit::offlineMessage;
using testkit::onlineMessage;
using testkit::registerMessage;
using testkit::statusSubscribeMessage;
using testkit::subscribeMessage;
using testkit::unregisterMessage;
using testkit::withdrawMessage;
using testkit::withLengthWord;
using Form = ReadAnswer::Form;
using Texts = std::vector<std::string>;

TEST_F(CoreTest, SubscribesAndWithdrawsWithoutAnAnswer) {
  EXPECT_EQ(ask(subscribeMessage("HOSTMON", "load")).form, Form::none);
  EXPECT_EQ(ask(subscribeMessage("HOSTMON", "load")).form, Form::none);
  EXPECT_TRUE(isSubscribed("load"));
  EXPECT_FALSE(isSubscribed("disk"));
  EXPECT_EQ(ask(withdrawMessage("HOSTMON", "load")).form, Form::none);
  EXPECT_FALSE(isSubscribed("load"));
}

TEST_F(CoreTest, DoesNotAnswerOrTakeAMalformedSubscription) {
  const std::string good = subscribeMessage("HOSTMON", "load");
  for (const auto& bad :
       {subscribeMessage("HOSTMON", "load", 2), subscribeMessage("HOSTMON", "load", -1),
        subscribeMessage(std::string(21, 'a'), "load"),
        subscribeMessage("HOSTMON", std::string(33, 'a')), good + '\0',
        good.substr(0, good.size() - 1), withLengthWord(good, 12)})
    EXPECT_EQ(ask(bad).form, Form::none);
  EXPECT_FALSE(isSubscribed("load"));
}

TEST_F(CoreTest, RefusesASubscriptionOnAConnectionThere) {
  constexpr unsigned int connection = 5;
  const ReadAnswer answer = ask(subscribeMessage("HOSTMON", "load"), connection);
  EXPECT_EQ(answer.form, Form::status);
  EXPECT_EQ(answer.status, DCH_STATUS_MALFORMED);
  EXPECT_FALSE(isSubscribed("load"));
}

TEST_F(CoreTest, AnswersCatalogueQueriesWithATextAlsoForUnknownNames) {
  ask(registerMessage("appl:OTHER,OTH;help:Some help;group:g;attr:a,N,4,why;", "OTHER", "OTH"));
  const auto text = [&](short code, const char* name) {
    const ReadAnswer answer = ask(catalogueMessage(code, name));
    EXPECT_EQ(answer.form, Form::text);
    return answer.text;
  };
  EXPECT_EQ(text(DCH_REQUEST_APPLICATIONS, nullptr),
            "HOSTMON,HMN,SOCK,load disk,0\nOTHER,OTH,NODP,g,0\n");
  EXPECT_EQ(text(DCH_REQUEST_APPLICATIONS, "OTHER"), "OTHER,OTH,NODP,g,0\n");
  EXPECT_EQ(text(DCH_REQUEST_ATTRIBUTES, "OTHER"), "g,a,N,4,why\n");
  EXPECT_EQ(text(DCH_REQUEST_HELP, "OTHER"), "Some help");
  const std::string longName(4000, 'x');
  for (const short code : {DCH_REQUEST_APPLICATIONS, DCH_REQUEST_ATTRIBUTES, DCH_REQUEST_HELP})
    for (const char* unknown : {"", "NONE", longName.c_str()}) EXPECT_EQ(text(code, unknown), "");
}

TEST_F(CoreTest, AnswersCatalogueQueriesWithWhatOtherSitesHave) {
  const auto registration = std::make_shared<const suite::Registration>(
      testkit::registrationOf("appl:FAR,FAR;help:away;group:g;attr:b,I,2;"));
  _core.remoteProviders().take("west",
                               {ProviderFact::Kind::registered, "FAR", {}, {}, registration});
  _core.remoteProviders().take("west", {ProviderFact::Kind::online, "HOSTMON", "load", "host1"});
  EXPECT_EQ(ask(catalogueMessage(DCH_REQUEST_APPLICATIONS)).text,
            "FAR,FAR,NODP,g,0\nHOSTMON,HMN,SOCK,load disk,0\n")
      << "no other site has registered the second one";
  EXPECT_EQ(ask(catalogueMessage(DCH_REQUEST_APPLICATIONS, "FAR")).text, "FAR,FAR,NODP,g,0\n");
  EXPECT_EQ(ask(catalogueMessage(DCH_REQUEST_ATTRIBUTES, "FAR")).text, "g,b,I,2,\n");
  EXPECT_EQ(ask(catalogueMessage(DCH_REQUEST_HELP, "FAR")).text, "away");
}

TEST_F(CoreTest, RefusesMalformedCatalogueQueries) {
  for (const short code : {DCH_REQUEST_APPLICATIONS, DCH_REQUEST_ATTRIBUTES, DCH_REQUEST_HELP}) {
    const std::string good = catalogueMessage(code, "HOSTMON");
    EXPECT_EQ(statusOf(good + 'x'), DCH_STATUS_MALFORMED);
    EXPECT_EQ(statusOf(withLengthWord(good.substr(0, good.size() - 1),
                                      static_cast<std::uint32_t>(good.size() - 1))),
              DCH_STATUS_MALFORMED);
  }
  EXPECT_EQ(statusOf(catalogueMessage(DCH_REQUEST_ATTRIBUTES)), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(catalogueMessage(DCH_REQUEST_HELP)), DCH_STATUS_MALFORMED);
}

TEST_F(CoreTest, StartsAnActionAndLetsConsumersWaitForIt) {
  EXPECT_EQ(ask(actionMessage("last", 1)).form, Form::none);
  EXPECT_EQ(ask(actionMessage("none", 2, "parameters")).form, Form::none);
  EXPECT_EQ(ask(actionResultsMessage(1)).form, Form::none) << "it runs";
  EXPECT_EQ(statusOf(actionResultsMessage(2)), DCH_STATUS_UNKNOWN_ACTION);
}

TEST_F(CoreTest, DoesNotAnswerOrCarryOutAMalformedAction) {
  const std::string good = actionMessage("last", 1, "parameters");
  for (std::size_t length = 5; length < good.size(); ++length) {
    const std::string cut = good.substr(0, length);
    // It is also whole without its parameters.
    if (length == actionMessage("last", 1).size()) continue;
    const auto word = static_cast<std::uint32_t>(length);
    const ReadAnswer answer = ask(withLengthWord(cut, word));
    EXPECT_TRUE(answer.form == Form::none || answer.status == DCH_STATUS_MALFORMED) << length;
  }
  EXPECT_EQ(ask(good + 'x').form, Form::none);
  EXPECT_EQ(ask(good + 'x', 5).status, DCH_STATUS_MALFORMED) << "on a connection";
  EXPECT_EQ(statusOf(actionResultsMessage(1)), DCH_STATUS_UNKNOWN_ACTION);
}

TEST_F(CoreTest, RefusesMalformedQuestionsForResults) {
  EXPECT_EQ(statusOf(actionResultsMessage(1) + 'x'), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(catalogueMessage(DCH_REQUEST_ACTION_RESULTS, "1")), DCH_STATUS_MALFORMED);
}

TEST_F(CoreTest, KeepsDeferralsWithoutAnAnswer) {
  EXPECT_EQ(ask(deferralMessage(5)).form, Form::none);
  ASSERT_EQ(_core.deferrals().kept().size(), 1u);
  EXPECT_EQ(_core.deferrals().kept().front().text(),
            "action 5, reference 0x00001234, time 1700, key HMN, table TABLE, source host1");
}

TEST_F(CoreTest, DoesNotAnswerOrKeepAMalformedDeferral) {
  const std::string good = deferralMessage(5);
  for (const std::string& bad :
       {good + 'x', good.substr(0, good.size() - 1), withLengthWord(good, 12),
        deferralMessage(5, std::string(4096, 'x'))})
    EXPECT_EQ(ask(bad).form, Form::none);
  EXPECT_TRUE(_core.deferrals().kept().empty());
}

TEST_F(CoreTest, TellsStatusSubscribersOfEachChange) {
  ask(statusSubscribeMessage());
  EXPECT_EQ(eventsOf(onlineMessage("HOSTMON", "load", "host1")), Texts{"HOSTMON,load,host1,1015"});
  EXPECT_EQ(eventsOf(onlineMessage("HOSTMON", "load", "host1")), Texts{}) << "no change";
  EXPECT_EQ(eventsOf(offlineMessage(goOnline())), Texts{"HOSTMON,load,host1,1025"});
  EXPECT_EQ(eventsOf(registerMessage()), Texts{"HOSTMON,,,1010"});
  goOnline("disk", "host2");
  EXPECT_EQ(eventsOf(unregisterMessage("HOSTMON")),
            (Texts{"HOSTMON,disk,host2,1020", "HOSTMON,,,1020"}));
}

TEST_F(CoreTest, TellsStatusSubscribersOfSourcesThatARegistrationTakesOffLine) {
  ask(statusSubscribeMessage());
  goOnline("load");
  goOnline("disk");
  EXPECT_EQ(eventsOf(registerMessage("appl:HOSTMON,HMN;group:load;attr:load1,D,16;")),
            (Texts{"HOSTMON,disk,host1,1010", "HOSTMON,,,1010"}));
}

TEST_F(CoreTest, TellsStatusSubscribersNothingOfRefusedRequests) {
  ask(statusSubscribeMessage());
  for (const auto& bad :
       {onlineMessage("NONE", "load", "s"), onlineMessage("HOSTMON", "none", "s"),
        offlineMessage(77), unregisterMessage("NONE"), registerMessage("appl:HOSTMON,HMN;")})
    EXPECT_EQ(eventsOf(bad), Texts{});
}

TEST_F(CoreTest, MakesNoStatusEventsForNobody) {
  EXPECT_EQ(eventsOf(registerMessage()), Texts{});
  ask(statusSubscribeMessage());
  ask(statusSubscribeMessage(0));
  EXPECT_EQ(eventsOf(registerMessage()), Texts{});
}

TEST_F(CoreTest, DoesNotAnswerOrTakeAMalformedStatusSubscription) {
  const std::string good = statusSubscribeMessage();
  for (const auto& bad : {statusSubscribeMessage(2), statusSubscribeMessage(-1), good + '\0',
                          good.substr(0, good.size() - 1), withLengthWord(good, 12)})
    EXPECT_EQ(ask(bad).form, Form::none);
  EXPECT_EQ(ask(good, 5).status, DCH_STATUS_MALFORMED) << "on a connection";
  EXPECT_EQ(eventsOf(registerMessage()), Texts{});
}

}  // namespace
}  // namespace dch
