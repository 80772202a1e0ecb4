#include "dch/requests.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <memory>

#include "dch/memory_registry.h"
#include "dch/testkit/messages.h"
#include "tests/support/scripted_dch.h"
#include "zordchcl/messages.h"

namespace dch {
namespace {

using testkit::actionMessage;
using testkit::actionResultsMessage;
using testkit::catalogueMessage;
using testkit::dataMessage;
using testkit::deferralMessage;
using testkit::hostmonRegistration;
using testkit::offlineMessage;
using testkit::onlineMessage;
using testkit::registerMessage;
using testkit::statusSubscribeMessage;
using testkit::subscribeMessage;
using testkit::unregisterMessage;
using testkit::Value;
using testkit::withdrawMessage;
using testkit::withLengthWord;
using Form = Answer::Form;
using Texts = std::vector<std::string>;

// Keeps nothing, like a store whose disk is full.
class FullRegistry : public MemoryRegistry {
 public:
  DCH_Status storeRow(const OnlineSource&, std::string_view) override {
    return DCH_STATUS_NOT_STORED;
  }
};

class RequestsTest : public ::testing::Test {
 protected:
  explicit RequestsTest(std::unique_ptr<Registry> registry = std::make_unique<MemoryRegistry>())
      : _registry(std::move(registry)) {
    ask(registerMessage());
  }

  Outcome handle(const std::string& bytes, unsigned int connection = 0) {
    // Exactly as long as the message, so that a sanitizer sees what is read beyond it.
    _received = std::make_unique<char[]>(bytes.size());
    bytes.copy(_received.get(), bytes.size());
    IncomingMessage message;
    message.bytes = _received.get();
    message.received = bytes.size();
    message.connection = connection;
    message.hasSenderName = true;
    message.sender.port = htons(4711);
    const Outcome outcome = _requests.handle(message);
    EXPECT_EQ(message.text(), bytes) << "the message was changed";
    return outcome;
  }

  Answer ask(const std::string& bytes, unsigned int connection = 0) {
    return handle(bytes, connection).answer;
  }

  ZORA_Long statusOf(const std::string& bytes) {
    const Answer answer = ask(bytes);
    EXPECT_EQ(answer.form, Form::status);
    return answer.status;
  }

  ZORA_Long goOnline(const std::string& group = "load", const std::string& source = "host1") {
    const Answer answer = ask(onlineMessage("HOSTMON", group, source));
    EXPECT_EQ(answer.status, DCH_STATUS_OK);
    return answer.handle;
  }

  void expectRefusedOnline(const std::string& bytes, DCH_Status status) {
    const Answer answer = ask(bytes);
    EXPECT_EQ(answer.form, Form::statusAndHandle);
    EXPECT_EQ(answer.status, status);
    EXPECT_EQ(answer.handle, 0);
  }

  // What status subscribers are told because of this message.
  std::vector<std::string> eventsOf(const std::string& bytes) {
    std::vector<std::string> texts;
    for (const StatusEvent& event : handle(bytes).statusEvents)
      texts.push_back(testkit::eventText(event.message));
    return texts;
  }

  std::size_t subscriberCount(const char* group) {
    const Subscribers* const subscribers = _subscriptions.find(topicOf("HOSTMON", group));
    return subscribers != nullptr ? subscribers->size() : 0;
  }

  const EventLog _log{false};
  PushSocket _socket{in_addr{htonl(INADDR_LOOPBACK)}};
  Subscriptions _subscriptions;
  Publisher _publisher{_subscriptions, _socket, _log};
  std::unique_ptr<Registry> _registry;
  ActionList _actionList{{"succeed", {"/bin/true"}}, {"last", {"/bin/sleep", "1000"}}};
  Actions _actions{_actionList, _log};
  Deferrals _deferrals;
  StatusSnapshots _snapshots{*_registry, _publisher};
  Requests _requests{*_registry, _publisher, _snapshots, _actions, _deferrals, _log};
  std::unique_ptr<char[]> _received;
};

TEST_F(RequestsTest, RegistersAndUnregisters) {
  EXPECT_EQ(statusOf(registerMessage("appl:OTHER,OTH;group:g;attr:a,N,4;", "OTHER", "OTH")), 0);
  EXPECT_EQ(statusOf(unregisterMessage("OTHER")), DCH_STATUS_OK);
  EXPECT_EQ(statusOf(unregisterMessage("OTHER")), DCH_STATUS_UNKNOWN_APPLICATION);
}

TEST_F(RequestsTest, RefusesARegistrationWhoseTextBreaksARuleOrNamesAnother) {
  EXPECT_EQ(statusOf(registerMessage("appl:HOSTMON,HMN;")), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(registerMessage("")), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(registerMessage(hostmonRegistration, "OTHER")), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(registerMessage(hostmonRegistration, "HOSTMON", "OTH")), DCH_STATUS_MALFORMED);
  EXPECT_GT(goOnline(), 0) << "the earlier registration is lost";
}

TEST_F(RequestsTest, RefusesARegistrationThatIsLongerThanADatagramMayBe) {
  std::string text = hostmonRegistration;
  for (int i = 0; i < 200; ++i) text += "attr:anAttribute" + std::to_string(i) + ",N,4;";
  EXPECT_EQ(statusOf(registerMessage(text)), DCH_STATUS_MALFORMED);
}

TEST_F(RequestsTest, GivesAHandleOrTellsWhichNameIsUnknown) {
  EXPECT_GT(goOnline(), 0);
  EXPECT_EQ(goOnline(), goOnline());
  expectRefusedOnline(onlineMessage("NONE", "load", "s"), DCH_STATUS_UNKNOWN_APPLICATION);
  expectRefusedOnline(onlineMessage("HOSTMON", "none", "s"), DCH_STATUS_UNKNOWN_GROUP);
}

TEST_F(RequestsTest, TakesNamesUpToTheirLimits) {
  const std::string name20(20, 'a'), name21(21, 'a'), name32(32, 'b'), name33(33, 'b');
  const std::string text = "appl:" + name20 + ",KEY;group:" + name32 + ";attr:a,N,4;";
  EXPECT_EQ(statusOf(registerMessage(text, name20, "KEY")), DCH_STATUS_OK);
  EXPECT_EQ(ask(onlineMessage(name20, name32, name32)).status, DCH_STATUS_OK);
  expectRefusedOnline(onlineMessage(name21, name32, name32), DCH_STATUS_MALFORMED);
  expectRefusedOnline(onlineMessage(name20, name33, name32), DCH_STATUS_MALFORMED);
  expectRefusedOnline(onlineMessage(name20, name32, name33), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(unregisterMessage(name21)), DCH_STATUS_MALFORMED);
}

TEST_F(RequestsTest, TakesASourceOffLineOnce) {
  const ZORA_Long handle = goOnline();
  EXPECT_EQ(statusOf(offlineMessage(handle)), DCH_STATUS_OK);
  EXPECT_EQ(statusOf(offlineMessage(handle)), DCH_STATUS_UNKNOWN_HANDLE);
  EXPECT_EQ(statusOf(dataMessage(handle)), DCH_STATUS_UNKNOWN_HANDLE);
}

TEST_F(RequestsTest, AcceptsARowThatFitsItsRegistrationAndNamesItsSource) {
  const ZORA_Long handle = goOnline();
  for (const auto& row : {dataMessage(handle),
                          dataMessage(handle, {{"load1", 'D', "0.42"}, {"processes", 'N', "1234"}}),
                          dataMessage(handle, {{"load1", 'D', std::string(16, 'x')}}),
                          dataMessage(handle, {{"load1", 'D', ""}})}) {
    const Outcome outcome = this->handle(row);
    EXPECT_EQ(outcome.answer.form, Form::status);
    EXPECT_EQ(outcome.answer.status, DCH_STATUS_OK);
    ASSERT_NE(outcome.source, nullptr);
    EXPECT_EQ(outcome.source->topic, topicOf("HOSTMON", "load"));
  }
}

TEST_F(RequestsTest, RefusesARowThatDoesNotFitItsRegistration) {
  const ZORA_Long handle = goOnline();
  const auto statusOfRow = [&](const Value& value) {
    const Outcome outcome = this->handle(dataMessage(handle, {{"load1", 'D', "0.42"}, value}));
    EXPECT_EQ(outcome.source, nullptr);
    return outcome.answer.status;
  };
  EXPECT_EQ(statusOfRow({"name", 'T', "of the other group"}), DCH_STATUS_UNKNOWN_ATTRIBUTE);
  EXPECT_EQ(statusOfRow({"", 'D', "x"}), DCH_STATUS_UNKNOWN_ATTRIBUTE);
  EXPECT_EQ(statusOfRow({"load1", 'D', std::string(17, 'x')}), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOfRow({"load1", 'N', "x"}), DCH_STATUS_MALFORMED);
}

TEST_F(RequestsTest, RefusesRowsOfHandlesThatAreNotOnLine) {
  for (const ZORA_Long handle : {0, 1, -1, 77, INT32_MAX, INT32_MIN})
    EXPECT_EQ(statusOf(dataMessage(handle)), DCH_STATUS_UNKNOWN_HANDLE) << handle;
}

TEST_F(RequestsTest, RefusesARowWithANameButNoValueAndOneWithFieldsOutOfOrder) {
  const ZORA_Long handle = goOnline();
  const auto row = [&](const std::function<void(DCH_MessageBuilder&)>& addFields) {
    return messageOf([&](DCH_MessageBuilder& message) {
      message.add(DCH_requestType, short{DCH_REQUEST_DATA});
      addFields(message);
    });
  };
  EXPECT_EQ(
      statusOf(row([&](auto& message) {
        message.add(DCH_handle, handle).add(DCH_dataCode, short{1}).add(DCH_attrName, "load1");
      })),
      DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(row([&](auto& message) {
              message.add(DCH_dataCode, short{1}).add(DCH_handle, handle);
            })),
            DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(row([&](auto& message) {
              message.add(DCH_handle, handle)
                  .add(DCH_dataCode, short{1})
                  .addAttributeValue("x", 1, 'D')
                  .add(DCH_attrName, "load1");
            })),
            DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(row([&](auto& message) { message.add(DCH_handle, handle); })),
            DCH_STATUS_MALFORMED);
}

TEST_F(RequestsTest, RefusesARowThatIsTooLongToPushAtOnce) {
  std::string text = "appl:BIG,BIG;group:g;attr:a,T,4096;";
  ask(registerMessage(text, "BIG", "BIG"));
  const ZORA_Long handle = ask(onlineMessage("BIG", "g", "s")).handle;
  // 30 bytes of head, 8 for the name, 7 in front of each value's bytes.
  const std::string half(4066, 'x');
  std::string row = dataMessage(handle, {{"a", 'T', half}, {"a", 'T', half}});
  ASSERT_EQ(row.size(), 8192u);
  EXPECT_EQ(statusOf(row), DCH_STATUS_OK);
  row = dataMessage(handle, {{"a", 'T', half}, {"a", 'T', half + 'x'}});
  EXPECT_EQ(statusOf(row), DCH_STATUS_MALFORMED);
}

TEST_F(RequestsTest, SubscribesAndWithdrawsWithoutAnAnswer) {
  EXPECT_EQ(ask(subscribeMessage("HOSTMON", "load")).form, Form::none);
  EXPECT_EQ(ask(subscribeMessage("HOSTMON", "load")).form, Form::none);
  EXPECT_EQ(subscriberCount("load"), 1u);
  EXPECT_EQ(subscriberCount("disk"), 0u);
  EXPECT_EQ(ask(withdrawMessage("HOSTMON", "load")).form, Form::none);
  EXPECT_EQ(subscriberCount("load"), 0u);
}

TEST_F(RequestsTest, DoesNotAnswerOrTakeAMalformedSubscription) {
  const std::string good = subscribeMessage("HOSTMON", "load");
  for (const auto& bad :
       {subscribeMessage("HOSTMON", "load", 2), subscribeMessage("HOSTMON", "load", -1),
        subscribeMessage(std::string(21, 'a'), "load"),
        subscribeMessage("HOSTMON", std::string(33, 'a')), good + '\0',
        good.substr(0, good.size() - 1), withLengthWord(good, 12)})
    EXPECT_EQ(ask(bad).form, Form::none);
  EXPECT_EQ(subscriberCount("load"), 0u);
}

TEST_F(RequestsTest, RefusesASubscriptionOnAConnectionThere) {
  constexpr unsigned int connection = 5;
  const Answer answer = ask(subscribeMessage("HOSTMON", "load"), connection);
  EXPECT_EQ(answer.form, Form::status);
  EXPECT_EQ(answer.status, DCH_STATUS_MALFORMED);
  EXPECT_EQ(subscriberCount("load"), 0u);
}

TEST_F(RequestsTest, AnswersCatalogueQueriesWithATextAlsoForUnknownNames) {
  ask(registerMessage("appl:OTHER,OTH;help:Some help;group:g;attr:a,N,4,why;", "OTHER", "OTH"));
  const auto text = [&](short code, const char* name) {
    const Answer answer = ask(catalogueMessage(code, name));
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

TEST_F(RequestsTest, RefusesMalformedCatalogueQueries) {
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

TEST_F(RequestsTest, StartsAnActionAndLetsConsumersWaitForIt) {
  EXPECT_EQ(ask(actionMessage("last", 1)).form, Form::none);
  EXPECT_EQ(ask(actionMessage("none", 2, "parameters")).form, Form::none);
  EXPECT_EQ(ask(actionResultsMessage(1)).form, Form::none) << "it runs";
  EXPECT_EQ(statusOf(actionResultsMessage(2)), DCH_STATUS_UNKNOWN_ACTION);
}

TEST_F(RequestsTest, DoesNotAnswerOrCarryOutAMalformedAction) {
  const std::string good = actionMessage("last", 1, "parameters");
  for (std::size_t length = 5; length < good.size(); ++length) {
    const std::string cut = good.substr(0, length);
    // It is also whole without its parameters.
    if (length == actionMessage("last", 1).size()) continue;
    const auto word = static_cast<std::uint32_t>(length);
    const Answer answer = ask(withLengthWord(cut, word));
    EXPECT_TRUE(answer.form == Form::none || answer.status == DCH_STATUS_MALFORMED) << length;
  }
  EXPECT_EQ(ask(good + 'x').form, Form::none);
  EXPECT_EQ(ask(good + 'x', 5).status, DCH_STATUS_MALFORMED) << "on a connection";
  EXPECT_EQ(statusOf(actionResultsMessage(1)), DCH_STATUS_UNKNOWN_ACTION);
}

TEST_F(RequestsTest, RefusesMalformedQuestionsForResults) {
  EXPECT_EQ(statusOf(actionResultsMessage(1) + 'x'), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(catalogueMessage(DCH_REQUEST_ACTION_RESULTS, "1")), DCH_STATUS_MALFORMED);
}

TEST_F(RequestsTest, KeepsDeferralsWithoutAnAnswer) {
  EXPECT_EQ(ask(deferralMessage(5)).form, Form::none);
  ASSERT_EQ(_deferrals.kept().size(), 1u);
  EXPECT_EQ(_deferrals.kept().front().text(),
            "action 5, reference 0x00001234, time 1700, key HMN, table TABLE, source host1");
}

TEST_F(RequestsTest, DoesNotAnswerOrKeepAMalformedDeferral) {
  const std::string good = deferralMessage(5);
  for (const std::string& bad :
       {good + 'x', good.substr(0, good.size() - 1), withLengthWord(good, 12),
        deferralMessage(5, std::string(4096, 'x'))})
    EXPECT_EQ(ask(bad).form, Form::none);
  EXPECT_TRUE(_deferrals.kept().empty());
}

TEST_F(RequestsTest, TellsStatusSubscribersOfEachChange) {
  ask(statusSubscribeMessage());
  EXPECT_EQ(eventsOf(onlineMessage("HOSTMON", "load", "host1")), Texts{"HOSTMON,load,host1,1015"});
  EXPECT_EQ(eventsOf(onlineMessage("HOSTMON", "load", "host1")), Texts{}) << "no change";
  EXPECT_EQ(eventsOf(offlineMessage(goOnline())), Texts{"HOSTMON,load,host1,1025"});
  EXPECT_EQ(eventsOf(registerMessage()), Texts{"HOSTMON,,,1010"});
  goOnline("disk", "host2");
  EXPECT_EQ(eventsOf(unregisterMessage("HOSTMON")),
            (Texts{"HOSTMON,disk,host2,1020", "HOSTMON,,,1020"}));
}

TEST_F(RequestsTest, TellsStatusSubscribersOfSourcesThatARegistrationTakesOffLine) {
  ask(statusSubscribeMessage());
  goOnline("load");
  goOnline("disk");
  EXPECT_EQ(eventsOf(registerMessage("appl:HOSTMON,HMN;group:load;attr:load1,D,16;")),
            (Texts{"HOSTMON,disk,host1,1010", "HOSTMON,,,1010"}));
}

TEST_F(RequestsTest, TellsStatusSubscribersNothingOfRefusedRequests) {
  ask(statusSubscribeMessage());
  for (const auto& bad :
       {onlineMessage("NONE", "load", "s"), onlineMessage("HOSTMON", "none", "s"),
        offlineMessage(77), unregisterMessage("NONE"), registerMessage("appl:HOSTMON,HMN;")})
    EXPECT_EQ(eventsOf(bad), Texts{});
}

TEST_F(RequestsTest, MakesNoStatusEventsForNobody) {
  EXPECT_EQ(eventsOf(registerMessage()), Texts{});
  ask(statusSubscribeMessage());
  ask(statusSubscribeMessage(0));
  EXPECT_EQ(eventsOf(registerMessage()), Texts{});
}

TEST_F(RequestsTest, DoesNotAnswerOrTakeAMalformedStatusSubscription) {
  const std::string good = statusSubscribeMessage();
  for (const auto& bad : {statusSubscribeMessage(2), statusSubscribeMessage(-1), good + '\0',
                          good.substr(0, good.size() - 1), withLengthWord(good, 12)})
    EXPECT_EQ(ask(bad).form, Form::none);
  EXPECT_EQ(ask(good, 5).status, DCH_STATUS_MALFORMED) << "on a connection";
  EXPECT_FALSE(_publisher.hasSubscribers(statusTopic));
}

TEST_F(RequestsTest, NeverAnswersAnAnswer) {
  for (const ZORA_Long status : {0, 100}) {
    EXPECT_EQ(ask(statusAnswer(status)).form, Form::none);
    EXPECT_EQ(ask(onlineAnswer(status, 1)).form, Form::none);
  }
  EXPECT_EQ(ask(messageOf([](DCH_MessageBuilder& message) {
              message.addBytes(DCH_response, "text", 4);
            })).form,
            Form::none);
}

TEST_F(RequestsTest, RefusesUnknownRequestCodesAndMessagesWithoutOne) {
  const auto only = [](short type, const char* text) {
    return messageOf([&](DCH_MessageBuilder& message) { message.add(type, text); });
  };
  for (const short code : {short{0}, short{0x1011}, short{0x2041}, short{-1}})
    EXPECT_EQ(statusOf(messageOf([&](auto& message) { message.add(DCH_requestType, code); })),
              DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(only(DCH_sourceName, DCH_TERMINATE_TEXT)), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(only(DCH_applName, "HOSTMON")), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(std::string("\0\0\0\4", 4)), DCH_STATUS_MALFORMED);
}

TEST_F(RequestsTest, RefusesMissingAndExtraFieldsAndEveryCutMessage) {
  const ZORA_Long handle = goOnline();
  for (const std::string& good :
       {registerMessage(), onlineMessage("HOSTMON", "load", "host1"), offlineMessage(handle),
        unregisterMessage("HOSTMON"), dataMessage(handle, {{"load1", 'D', "x"}})}) {
    const auto expectMalformed = [&](const std::string& bad) {
      EXPECT_EQ(ask(bad).status, DCH_STATUS_MALFORMED) << bad.size() << " of " << good.size();
    };
    std::string extra = good + std::string("\0\x12\0\0\0\0", 6);
    expectMalformed(withLengthWord(extra, static_cast<std::uint32_t>(extra.size())));
    expectMalformed(good + 'x');
    // A row is also whole after its head.
    const std::size_t shortestRow = DCH_DATA_ATTRIBUTES_OFFSET;
    for (std::size_t length = 1; length < good.size(); ++length) {
      const std::string cut = good.substr(0, length);
      expectMalformed(cut);
      if (length >= 4 && length != shortestRow)
        expectMalformed(withLengthWord(cut, static_cast<std::uint32_t>(length)));
    }
  }
}

TEST_F(RequestsTest, RefusesLengthWordsThatDoNotMatchWhatCame) {
  const std::string good = unregisterMessage("HOSTMON");
  for (const std::uint32_t length : {0u, 1u, 3u, 4u, 0x7fffffffu, 0x80000000u, 0xffffffffu})
    EXPECT_EQ(statusOf(withLengthWord(good, length)), DCH_STATUS_MALFORMED) << length;
  EXPECT_GT(goOnline(), 0) << "the application was unregistered";
}

class FullRegistryTest : public RequestsTest {
 protected:
  FullRegistryTest() : RequestsTest(std::make_unique<FullRegistry>()) {}
};

TEST_F(FullRegistryTest, DoesNotAcknowledgeOrPublishARowThatIsNotStored) {
  const Outcome outcome = handle(dataMessage(goOnline()));
  EXPECT_EQ(outcome.answer.status, DCH_STATUS_NOT_STORED);
  EXPECT_EQ(outcome.source, nullptr);
}

}  // namespace
}  // namespace dch
