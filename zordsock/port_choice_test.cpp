// The rule by which the DCH gets its port, for a program that only wants the port.
#include "zordsock/port_choice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/trace_capture.h"
#include "zordsock/test_port.h"

namespace {

using testing::IsEmpty;
using zordsock::choosePort;
using zordsock::configuredPort;
using zordsock::PortChoice;
using zordsock::PortRule;
using zordsock::readPortRule;

unsigned short freePort(const std::function<bool(int)>& suits = isFree) {
  return static_cast<unsigned short>(findPort(20000, 31000, suits));
}

// Whether both sockets of the choice are bound to the port; closes them.
bool had(const PortChoice& choice, int port) {
  const bool isPort = choice.isBound() && choice.port == port &&
                      ZOR0_RetrieveSockPort(choice.datagramSocket) == port &&
                      ZOR0_RetrieveSockPort(choice.streamSocket) == port &&
                      ntohs(choice.address.sin_port) == port;
  close(choice.datagramSocket);
  close(choice.streamSocket);
  return isPort;
}

TEST(ConfiguredPort, IsTheVariableElseTheSettingElseTheDefault) {
  {
    const ProductSettings settings("22=2020\n");
    EXPECT_EQ(configuredPort("1234"), 1234);
    EXPECT_EQ(configuredPort("70000"), 70000 - 65536);
    EXPECT_EQ(configuredPort("none"), 0);
    EXPECT_EQ(configuredPort(nullptr), 2020);
  }
  const ProductSettings settings("");
  EXPECT_EQ(configuredPort(nullptr), 1919);
}

TEST(PortRule, HasCandidatesForAnInstanceOnTheDefaultPort) {
  const ProductSettings settings("");
  EXPECT_FALSE(readPortRule(1919).hasCandidates());
  ZORA_SetInstanceName("inst1");
  EXPECT_TRUE(readPortRule(1919).hasCandidates());
  EXPECT_FALSE(readPortRule(1920).hasCandidates());
}

TEST(PortRule, HasCandidatesWithSettingZero) {
  const ProductSettings settings("0=\n");
  EXPECT_TRUE(readPortRule(1920).hasCandidates());
}

TEST(PortChoice, IsMadeWithoutPausesTraceAndPublication) {
  const ProductSettings settings("0=yes\n");
  const unsigned short port = freePort();
  clearRecordedSleeps();
  unsetenv("ZORA_DCH_PORT");
  const TraceCapture trace("zordsock/*=0xff");
  EXPECT_TRUE(had(choosePort(readPortRule(port)), port));
  EXPECT_THAT(trace.texts(), IsEmpty());
  EXPECT_THAT(recordedSleeps(), IsEmpty());
  EXPECT_EQ(publishedPort(), "none");
  EXPECT_EQ(ProductSettings::get(22), "none");
}

TEST(PortChoice, IsTheConfiguredPortAlone) {
  const unsigned short port = freePort();
  const PortRule rule{port, false, false};
  EXPECT_TRUE(had(choosePort(rule), port));
  const TakenPort taken(port);
  const PortChoice choice = choosePort(rule);
  EXPECT_FALSE(choice.isBound());
  EXPECT_TRUE(choice.isInUse());
}

TEST(PortChoice, TellsWhyThePortCannotBeHad) {
  setenv("ZOR0_BIND_ADDR", "192.0.2.1", 1);
  const PortChoice choice = choosePort({freePort(), false, false});
  EXPECT_FALSE(choice.isBound());
  EXPECT_FALSE(choice.isInUse());
  EXPECT_EQ(choice.datagramError, EADDRNOTAVAIL);
  EXPECT_EQ(choice.streamError, EADDRNOTAVAIL);
}

TEST(PortChoice, TellsWhichCandidateItIs) {
  const ProductSettings settings("23=17\n");
  const unsigned short port = freePort([](int first) { return isFree(first + 17); });
  const TakenPort taken(port);
  const PortChoice choice = choosePort({port, false, true});
  EXPECT_EQ(choice.offset, 17);
  EXPECT_EQ(choice.multiplier, 1);
  EXPECT_TRUE(had(choice, port + 17));
}

TEST(PortChoice, LeavesNothingOpenOfAPortThatIsFreeForOneKind) {
  const unsigned short port = freePort();
  for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
    const TakenPort taken(port, {type});
    const long before = openDescriptors();
    const PortChoice choice = choosePort({port, false, false});
    EXPECT_FALSE(choice.isBound());
    EXPECT_EQ(choice.datagramSocket, -1);
    EXPECT_EQ(choice.streamSocket, -1);
    EXPECT_EQ(openDescriptors(), before);
  }
}

TEST(PortChoice, OfCandidatesAboveTheHighestPortIsNone) {
  const ProductSettings settings("23=60000\n");
  const unsigned short port = freePort();
  const TakenPort taken(port);
  const PortChoice choice = choosePort({port, false, true});
  EXPECT_FALSE(choice.isBound());
  EXPECT_EQ(choice.port, port);
}

}  // namespace
