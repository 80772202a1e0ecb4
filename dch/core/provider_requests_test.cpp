// The messages that all requests may be, and the requests of providers.
#include <gtest/gtest.h>

#include "dch/testkit/core_test.h"
#include "dch/testkit/messages.h"
#include "tests/support/messages.h"
#include "zordchcl/messages.h"

namespace dch {
namespace {

using testkit::dataMessage;
using testkit::hostmonRegistration;
using testkit::offlineMessage;
using testkit::onlineMessage;
using testkit::registerMessage;
using testkit::unregisterMessage;
using testkit::Value;
using testkit::withLengthWord;
using Form = ReadAnswer::Form;

TEST_F(CoreTest, RegistersAndUnregisters) {
  EXPECT_EQ(statusOf(registerMessage("appl:OTHER,OTH;group:g;attr:a,N,4;", "OTHER", "OTH")), 0);
  EXPECT_EQ(statusOf(unregisterMessage("OTHER")), DCH_STATUS_OK);
  EXPECT_EQ(statusOf(unregisterMessage("OTHER")), DCH_STATUS_UNKNOWN_APPLICATION);
}

TEST_F(CoreTest, RefusesARegistrationWhoseTextBreaksARuleOrNamesAnother) {
  EXPECT_EQ(statusOf(registerMessage("appl:HOSTMON,HMN;")), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(registerMessage("")), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(registerMessage(hostmonRegistration, "OTHER")), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(registerMessage(hostmonRegistration, "HOSTMON", "OTH")), DCH_STATUS_MALFORMED);
  EXPECT_GT(goOnline(), 0) << "the earlier registration is lost";
}

TEST_F(CoreTest, RefusesARegistrationThatIsLongerThanADatagramMayBe) {
  std::string text = hostmonRegistration;
  for (int i = 0; i < 200; ++i) text += "attr:anAttribute" + std::to_string(i) + ",N,4;";
  EXPECT_EQ(statusOf(registerMessage(text)), DCH_STATUS_MALFORMED);
}

TEST_F(CoreTest, GivesAHandleOrTellsWhichNameIsUnknown) {
  EXPECT_GT(goOnline(), 0);
  EXPECT_EQ(goOnline(), goOnline());
  expectRefusedOnline(onlineMessage("NONE", "load", "s"), DCH_STATUS_UNKNOWN_APPLICATION);
  expectRefusedOnline(onlineMessage("HOSTMON", "none", "s"), DCH_STATUS_UNKNOWN_GROUP);
}

TEST_F(CoreTest, TakesNamesUpToTheirLimits) {
  const std::string name20(20, 'a'), name21(21, 'a'), name32(32, 'b'), name33(33, 'b');
  const std::string text = "appl:" + name20 + ",KEY;group:" + name32 + ";attr:a,N,4;";
  EXPECT_EQ(statusOf(registerMessage(text, name20, "KEY")), DCH_STATUS_OK);
  EXPECT_EQ(ask(onlineMessage(name20, name32, name32)).status, DCH_STATUS_OK);
  expectRefusedOnline(onlineMessage(name21, name32, name32), DCH_STATUS_MALFORMED);
  expectRefusedOnline(onlineMessage(name20, name33, name32), DCH_STATUS_MALFORMED);
  expectRefusedOnline(onlineMessage(name20, name32, name33), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(unregisterMessage(name21)), DCH_STATUS_MALFORMED);
}

TEST_F(CoreTest, TakesASourceOffLineOnce) {
  const ZORA_Long handle = goOnline();
  EXPECT_EQ(statusOf(offlineMessage(handle)), DCH_STATUS_OK);
  EXPECT_EQ(statusOf(offlineMessage(handle)), DCH_STATUS_UNKNOWN_HANDLE);
  EXPECT_EQ(statusOf(dataMessage(handle)), DCH_STATUS_UNKNOWN_HANDLE);
}

TEST_F(CoreTest, AcceptsARowThatFitsItsRegistrationAndPushesItAsItCame) {
  const ZORA_Long handle = goOnline();
  ask(testkit::subscribeMessage("HOSTMON", "load"));
  for (const auto& row : {dataMessage(handle),
                          dataMessage(handle, {{"load1", 'D', "0.42"}, {"processes", 'N', "1234"}}),
                          dataMessage(handle, {{"load1", 'D', std::string(16, 'x')}}),
                          dataMessage(handle, {{"load1", 'D', ""}})}) {
    EXPECT_EQ(statusOf(row), DCH_STATUS_OK);
    EXPECT_EQ(takePushed(), std::vector<std::string>{row});
    EXPECT_EQ(_core.registry().findOnline(handle)->row->message, row);
  }
}

TEST_F(CoreTest, RefusesARowThatDoesNotFitItsRegistration) {
  const ZORA_Long handle = goOnline();
  ask(testkit::subscribeMessage("HOSTMON", "load"));
  const auto statusOfRow = [&](const Value& value) {
    return statusOf(dataMessage(handle, {{"load1", 'D', "0.42"}, value}));
  };
  EXPECT_EQ(statusOfRow({"name", 'T', "of the other group"}), DCH_STATUS_UNKNOWN_ATTRIBUTE);
  EXPECT_EQ(statusOfRow({"", 'D', "x"}), DCH_STATUS_UNKNOWN_ATTRIBUTE);
  EXPECT_EQ(statusOfRow({"load1", 'D', std::string(17, 'x')}), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOfRow({"load1", 'N', "x"}), DCH_STATUS_MALFORMED);
  EXPECT_TRUE(takePushed().empty());
}

TEST_F(CoreTest, RefusesRowsOfHandlesThatAreNotOnLine) {
  for (const ZORA_Long handle : {0, 1, -1, 77, INT32_MAX, INT32_MIN})
    EXPECT_EQ(statusOf(dataMessage(handle)), DCH_STATUS_UNKNOWN_HANDLE) << handle;
}

TEST_F(CoreTest, RefusesARowWithANameButNoValueAndOneWithFieldsOutOfOrder) {
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

TEST_F(CoreTest, RefusesARowThatIsTooLongToPushAtOnce) {
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

TEST_F(CoreTest, NeverAnswersAnAnswer) {
  for (const ZORA_Long status : {0, 100}) {
    EXPECT_EQ(ask(statusAnswer(status)).form, Form::none);
    EXPECT_EQ(ask(onlineAnswer(status, 1)).form, Form::none);
  }
  EXPECT_EQ(ask(messageOf([](DCH_MessageBuilder& message) {
              message.addBytes(DCH_response, "text", 4);
            })).form,
            Form::none);
}

TEST_F(CoreTest, RefusesUnknownRequestCodesAndMessagesWithoutOne) {
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

TEST_F(CoreTest, RefusesMissingAndExtraFieldsAndEveryCutMessage) {
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

TEST_F(CoreTest, RefusesLengthWordsThatDoNotMatchWhatCame) {
  const std::string good = unregisterMessage("HOSTMON");
  for (const std::uint32_t length : {0u, 1u, 3u, 4u, 0x7fffffffu, 0x80000000u, 0xffffffffu})
    EXPECT_EQ(statusOf(withLengthWord(good, length)), DCH_STATUS_MALFORMED) << length;
  EXPECT_GT(goOnline(), 0) << "the application was unregistered";
}

}  // namespace
}  // namespace dch
