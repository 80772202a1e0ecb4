// The bytes of every request, and the builder and tables behind them.
#include "zordchcl/messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <set>

#include "tests/support/bytes.h"
#include "tests/support/fake_transport.h"
#include "tests/support/messages.h"

namespace {

using testing::ElementsAre;

TEST(Messages, RequestCodesAreThoseOfTheChannel) {
  EXPECT_EQ(DCH_REQUEST_REGISTER, 0x1010);
  EXPECT_EQ(DCH_REQUEST_ONLINE, 0x1015);
  EXPECT_EQ(DCH_REQUEST_UNREGISTER, 0x1020);
  EXPECT_EQ(DCH_REQUEST_OFFLINE, 0x1025);
  EXPECT_EQ(DCH_REQUEST_DATA, 0x1030);
  EXPECT_EQ(DCH_REQUEST_DATA_SUBSCRIPTION, 0x2060);
}

TEST(Messages, RegistrationCarriesNameKeyAndText) {
  FakedClient faked;
  faked.transport.answers = {statusAnswer(0)};
  ZORA_Long status = -1;
  EXPECT_EQ(faked.client.dp_register(&status, "appl:HOSTMON,HMN; group:load; attr:l1,D,16,x;"), 0);
  EXPECT_THAT(faked.transport.written,
              ElementsAre(bytesOf("00000055"
                                  "0010 00000002 1010"
                                  "0020 00000008 'HOSTMON' 00"
                                  "0021 00000004 'HMN' 00"
                                  "0012 0000002b 'appl:HOSTMON,HMN;group:load;attr:l1,D,16,x;'")));
}

TEST(Messages, OnlineCarriesTheThreeNames) {
  FakedClient faked;
  faked.transport.answers = {onlineAnswer(0, 5)};
  ZORA_Long status = -1;
  ZORA_Long handle = -1;
  EXPECT_EQ(faked.client.dp_online(&status, &handle, "HOSTMON", "load", "host1"), 0);
  EXPECT_THAT(faked.transport.written, ElementsAre(bytesOf("00000031"
                                                           "0010 00000002 1015"
                                                           "0020 00000008 'HOSTMON' 00"
                                                           "0023 00000005 'load' 00"
                                                           "0022 00000006 'host1' 00")));
}

TEST(Messages, OfflineCarriesTheHandleInNetworkOrder) {
  FakedClient faked;
  faked.transport.answers = {statusAnswer(0)};
  ZORA_Long status = -1;
  EXPECT_EQ(faked.client.dp_offline(&status, 0x01020304), 0);
  EXPECT_THAT(faked.transport.written, ElementsAre(bytesOf("00000016"
                                                           "0010 00000002 1025"
                                                           "0080 00000004 01020304")));
}

TEST(Messages, UnregisterCarriesTheApplication) {
  FakedClient faked;
  faked.transport.answers = {statusAnswer(0)};
  ZORA_Long status = -1;
  EXPECT_EQ(faked.client.dp_unregister(&status, "HOSTMON"), 0);
  EXPECT_THAT(faked.transport.written, ElementsAre(bytesOf("0000001a"
                                                           "0010 00000002 1020"
                                                           "0020 00000008 'HOSTMON' 00")));
}

TEST(Messages, ARowHasPlaceholdersUntilItIsStamped) {
  FakedClient faked;
  ZORA_Long status = -1;
  char* row = nullptr;
  ZORA_Long size = 0;
  EXPECT_EQ(faked.client.dp_formatData(&status, &row, &size, "load1", "0.25", 5, 'D'), 0);
  EXPECT_EQ(faked.client.dp_formatData(&status, &row, &size, "n", "\x01\x02", 2, 'N'), 0);
  const std::string attributes =
      "0050 00000006 'load1' 00 0051 00000006 'D0.25' 00"
      "0050 00000002 'n' 00 0051 00000003 'N' 0102";
  EXPECT_EQ(std::string(row, static_cast<std::size_t>(size)), bytesOf("00000047"
                                                                      "0010 00000002 1030"
                                                                      "0080 00000004 00000000"
                                                                      "0070 00000002 0011" +
                                                                      attributes));
  faked.transport.answers = {statusAnswer(0)};
  EXPECT_EQ(faked.client.dp_data(&status, 0x0A0B0C0D, 0x1234, &row), 0);
  EXPECT_THAT(faked.transport.written, ElementsAre(bytesOf("00000047"
                                                           "0010 00000002 1030"
                                                           "0080 00000004 0a0b0c0d"
                                                           "0070 00000002 1234" +
                                                           attributes)));
}

TEST(Messages, TheStampedValuesLieAtTheirOffsets) {
  const std::string row = messageOf([](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_DATA})
        .add(DCH_handle, ZORA_Long{0x11223344})
        .add(DCH_dataCode, short{0x5566});
  });
  EXPECT_EQ(row.substr(DCH_DATA_HANDLE_OFFSET, 4), "\x11\x22\x33\x44");
  EXPECT_EQ(row.substr(DCH_DATA_CODE_OFFSET, 2), "\x55\x66");
  EXPECT_EQ(row.size(), DCH_DATA_ATTRIBUTES_OFFSET);
  EXPECT_EQ(DCH_DATA_HANDLE_OFFSET, 18u);
  EXPECT_EQ(DCH_DATA_CODE_OFFSET, 28u);
}

TEST(Messages, ADataSubscriptionStartsAndStopsWithTheSameNames) {
  FakedClient faked;
  EXPECT_EQ(faked.client.dc_waitOnDataInitialize("HOSTMON", "load"), 0);
  EXPECT_EQ(faked.client.dc_waitOnDataDestroy(), 0);
  const std::string names = "0020 00000008 'HOSTMON' 00 0023 00000005 'load' 00";
  EXPECT_THAT(
      faked.transport.written,
      ElementsAre(bytesOf("0000002f 0010 00000002 2060" + names + "0011 00000004 00000001"),
                  bytesOf("0000002f 0010 00000002 2060" + names + "0011 00000004 00000000")));
  EXPECT_TRUE(faked.transport.waits.empty()) << "a subscription has no answer";
}

TEST(Messages, RequestsAreWrittenWithoutAConnection) {
  FakedClient faked;
  faked.transport.answers = {statusAnswer(0), statusAnswer(0)};
  ZORA_Long status = -1;
  faked.client.dp_offline(&status, 1);
  faked.client.dp_unregister(&status, "A");
  faked.client.dc_waitOnDataInitialize("A", "g");
  EXPECT_THAT(faked.transport.flags, ElementsAre(0u, 0u, 0u));
}

TEST(Messages, AShortRequestHoldsNothingOfALongerOneBeforeIt) {
  FakedClient faked;
  faked.transport.answers = {statusAnswer(0), statusAnswer(0)};
  ZORA_Long status = -1;
  faked.client.dp_unregister(&status, std::string(300, 'x').c_str());
  faked.client.dp_offline(&status, 1);
  EXPECT_EQ(faked.transport.written.at(1).size(), 22u);
  EXPECT_EQ(std::string(faked.client._msgBuffer + 22, 400), std::string(400, '\0'));
}

TEST(MessageBuilder, AFieldWithoutRoomIsLeftOutWhole) {
  std::array<char, 20> buffer;
  buffer.fill('#');
  DCH_MessageBuilder message(buffer.data(), buffer.size());
  message.add(DCH_requestType, short{0x1020});
  EXPECT_TRUE(message.fits());
  message.add(DCH_applName, "AB");  // 9 bytes, 8 are left
  EXPECT_FALSE(message.fits());
  EXPECT_EQ(message.length(), 12);
  EXPECT_EQ(std::string(buffer.data(), buffer.size()),
            bytesOf("0000000c 0010 00000002 1020 '########'"));
}

TEST(MessageBuilder, NothingFollowsAFieldThatWasLeftOut) {
  std::array<char, 20> buffer;
  DCH_MessageBuilder message(buffer.data(), buffer.size());
  message.add(DCH_applName, "this does not fit").add(DCH_dataCode, short{1});
  EXPECT_FALSE(message.fits());
  EXPECT_EQ(message.length(), 4);
}

TEST(MessageBuilder, FillsItsRoomToTheLastByte) {
  std::array<char, 20> buffer;
  DCH_MessageBuilder message(buffer.data(), buffer.size());
  message.add(DCH_applName, "nine char");
  EXPECT_TRUE(message.fits());
  EXPECT_EQ(std::string(buffer.data(), buffer.size()),
            bytesOf("00000014 0020 0000000a 'nine char' 00"));
}

TEST(MessageBuilder, GoesOnBehindWhatIsThere) {
  std::array<char, 64> buffer;
  DCH_MessageBuilder first(buffer.data(), buffer.size());
  first.add(DCH_applName, "A");
  DCH_MessageBuilder second(buffer.data(), buffer.size(), 12);
  second.addBytes(DCH_response, "xyz", 3);
  EXPECT_EQ(std::string(buffer.data(), static_cast<std::size_t>(second.length())),
            bytesOf("00000015 0020 00000002 'A' 00 0012 00000003 'xyz'"));
}

TEST(MessageBuilder, RefusesAStartBehindItsRoom) {
  std::array<char, 8> buffer{};
  DCH_MessageBuilder message(buffer.data(), buffer.size(), 9);
  message.add(DCH_dataCode, short{1});
  EXPECT_FALSE(message.fits());
  EXPECT_EQ(std::string(buffer.data(), buffer.size()), std::string(8, '\0'));
}

TEST(StatusTable, HasEachNumberOnce) {
  std::set<ZORA_Long> numbers;
  for (const DCH_StatusEntry& entry : DCH_statusTable) {
    EXPECT_TRUE(numbers.insert(entry.number).second) << entry.number;
    EXPECT_STREQ(DCH_statusText(entry.number), entry.text);
  }
  for (ZORA_Long own = 0; own <= 5; ++own) EXPECT_EQ(numbers.count(own), 1u);
}

TEST(StatusTable, AnyOtherValueIsUnknown) {
  EXPECT_STREQ(DCH_statusText(77), "unknown status");
  EXPECT_STREQ(DCH_statusText(-1), "unknown status");
}

}  // namespace
