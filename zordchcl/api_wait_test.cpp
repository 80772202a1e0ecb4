// How long the providers' functions really wait for an answer that does not come.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/leaks_on_purpose.h"
#include "tests/support/quickest.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_api.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char oneSecondLine[] = "Error: ipcRead with wait[1 second] failed\n";

TEST(RealWait, OnlineWithANullNameCostsOneTimeoutAndEndsWithStatusFive) {
  const ScriptedDch dch(never());
  setenv("ZORA_DCH_TIMEOUT", "1", 1);
  const auto goOnline = [] {
    const TraceCapture trace("0x80");
    ZORA_Long status = untouched;
    ZORA_Long handle = untouched;
    int result = 99;
    const double seconds =
        secondsOf([&] { result = dp_online(&status, &handle, "HOSTMON", "load", nullptr); });
    EXPECT_EQ(result, 1);
    EXPECT_EQ(status, 5);
    EXPECT_EQ(handle, untouched);
    EXPECT_GE(seconds, 0.99);
    EXPECT_THAT(trace.textsOf("DCHclient::dp_online"),
                ElementsAre("Error: applName/attrGroup/sourceName were NULL\n", oneSecondLine));
    return seconds;
  };
  EXPECT_LT(quickest(1.9, goOnline), 1.9);
  EXPECT_THAT(dch.requests(), IsEmpty());
}

TEST(RealWait, ATooLongNameIsReplacedByTheAnswerThatDoesNotCome) {
  const ScriptedDch dch(never());
  setenv("ZORA_DCH_TIMEOUT", "1", 1);
  ZORA_Long status = untouched;
  ZORA_Long handle = untouched;
  EXPECT_EQ(dp_online(&status, &handle, std::string(21, 'n').c_str(), "load", "host1"), 1);
  EXPECT_EQ(status, 5);
  EXPECT_THAT(dch.requests(), IsEmpty());
}

TEST(RealWait, AFailedWriteOfARegistrationStillWaits) {
  setenv("ZORA_DCH_ADDR", "255.255.255.255", 1);  // which no plain socket may send to
  setenv("ZORA_DCH_TIMEOUT", "1", 1);
  const TraceCapture trace("0x80");
  ZORA_Long status = untouched;
  const double seconds = secondsOf([&] { EXPECT_EQ(dp_register(&status, registration), 1); });
  EXPECT_EQ(status, 5);
  EXPECT_GE(seconds, 0.99);
  EXPECT_THAT(trace.textsOf("DCHclient::dp_register"),
              ElementsAre(std::string("Error: writing dp_register message to DCHserver for [") +
                              registration + "]\n",
                          oneSecondLine));
}

TEST(RealWait, FailedWritesOfTheOthersEndAtOnce) {
  setenv("ZORA_DCH_ADDR", "255.255.255.255", 1);
  const TraceCapture trace("*/ipcSock::*=0");
  const auto request = [] {
    TraceCapture::forget();
    ZORA_Long status = untouched;
    EXPECT_EQ(dp_offline(&status, 815), 1);
    EXPECT_EQ(status, 2);
    EXPECT_EQ(dp_unregister(&status, "HOSTMON"), 1);
    EXPECT_EQ(status, 2);
    char* row = newRow();
    EXPECT_EQ(dp_data(&status, 815, 17, &row), 1);
    EXPECT_EQ(status, 2);
    EXPECT_EQ(row, nullptr);
    row = newRow();
    EXPECT_EQ(dp_actionData(&status, 815, 17, &row, 5, 5), 1);
    EXPECT_EQ(status, 2);
    EXPECT_EQ(row, nullptr);
    DCH_api_init();
    const LeaksOnPurpose leaks;
    EXPECT_EQ(dc_waitOnDataInitialize("HOSTMON", "load"), nullptr);
  };
  EXPECT_LT(quickest(0.9, [&] { return secondsOf(request); }), 0.9);
  EXPECT_THAT(trace.texts(),
              ElementsAre("Error: writing dp_offline message to DCHserver\n",
                          "Error: writing dp_unregister message to DCHserver\n",
                          "Error: writing dp_data message to DCHserver\n",
                          "Error: writing dp_data message to DCHserver\n",
                          "Error: writing dc_waitOnDataInitialize message to DCHserver\n"));
}

// How long dp_actionData waits for an answer that does not come. The trace is that of this call.
double secondsOfActionData(short readTimeout, short retryCount) {
  TraceCapture::forget();
  char* row = newRow();
  ZORA_Long status = untouched;
  const double seconds = secondsOf(
      [&] { EXPECT_EQ(dp_actionData(&status, 815, 17, &row, readTimeout, retryCount), 1); });
  EXPECT_EQ(status, 5);
  EXPECT_EQ(row, nullptr);
  return seconds;
}

int countOf(const TraceCapture& trace, const std::string& part) {
  int count = 0;
  for (const std::string& text : trace.textsOf("ipcSock::ipcRead"))
    count += text.find(part) != std::string::npos;
  return count;
}

TEST(RealWait, ActionDataWaitsAsLongAsItIsTold) {
  const ScriptedDch dch(never());
  const TraceCapture trace("0x90");
  const double seconds = quickest(1.9, [] { return secondsOfActionData(1, 0); });
  EXPECT_GE(seconds, 0.99);
  EXPECT_LT(seconds, 1.9);
  EXPECT_TRUE(trace.has(oneSecondLine)) << "the wait's own length counts, not the default of 30";
  EXPECT_EQ(countOf(trace, "...trying again\n"), 0);
  EXPECT_EQ(countOf(trace, "...not retrying\n"), 1);
}

TEST(RealWait, ActionDataCanWaitLongerThanTheDefault) {
  const ScriptedDch dch(never());
  setenv("ZORA_DCH_TIMEOUT", "1", 1);
  const TraceCapture trace("0x90");
  const double seconds = quickest(2.9, [] { return secondsOfActionData(2, 0); });
  EXPECT_GE(seconds, 1.99);
  EXPECT_LT(seconds, 2.9);
  EXPECT_FALSE(trace.has(oneSecondLine));
}

TEST(RealWait, ActionDataWithoutATimeoutWaitsTheDefault) {
  const ScriptedDch dch(never());
  setenv("ZORA_DCH_TIMEOUT", "1", 1);
  const TraceCapture trace("0x90");
  const double seconds = quickest(1.9, [] { return secondsOfActionData(0, 0); });
  EXPECT_GE(seconds, 0.99);
  EXPECT_LT(seconds, 1.9);
  EXPECT_TRUE(trace.has(oneSecondLine));
}

TEST(RealWait, ActionDataLooksAgainAsOftenAsItIsTold) {
  const ScriptedDch dch(never());
  const TraceCapture trace("0x90");
  const double seconds = quickest(1.9, [] { return secondsOfActionData(1, 3); });
  EXPECT_LT(seconds, 1.9) << "a further look does not wait again";
  EXPECT_EQ(countOf(trace, "...trying again\n"), 3);
  EXPECT_EQ(countOf(trace, "...not retrying\n"), 1);
}

TEST(RealWait, DataLooksAgainOnce) {
  const ScriptedDch dch(never());
  setenv("ZORA_DCH_TIMEOUT", "1", 1);
  const TraceCapture trace("0x90");
  char* row = newRow();
  ZORA_Long status = untouched;
  EXPECT_EQ(dp_data(&status, 815, 17, &row), 1);
  EXPECT_EQ(status, 5);
  EXPECT_EQ(countOf(trace, "...trying again\n"), 1);
  EXPECT_EQ(countOf(trace, "...not retrying\n"), 1);
  EXPECT_TRUE(trace.has(oneSecondLine));
}

TEST(RealWait, ANegativeTimeoutWaitsWithoutLimit) {
  const ScriptedDch dch(always(statusAnswer(3)));
  const TraceCapture trace("*/ipcSock::ipcRead=0x10");
  char* row = newRow();
  ZORA_Long status = untouched;
  EXPECT_EQ(dp_actionData(&status, 815, 17, &row, -1, 0), 0);
  EXPECT_EQ(status, 3);
  EXPECT_EQ(countOf(trace, "initial wait=-1\n"), 1);
}

TEST(RealWait, AnAnswerEndsTheWait) {
  const ScriptedDch dch(always(statusAnswer(3)));
  const auto request = [] {
    char* row = newRow();
    ZORA_Long status = untouched;
    EXPECT_EQ(dp_actionData(&status, 815, 17, &row, 9, 0), 0);
    EXPECT_EQ(status, 3);
  };
  EXPECT_LT(quickest(0.9, [&] { return secondsOf(request); }), 0.9);
}

}  // namespace
