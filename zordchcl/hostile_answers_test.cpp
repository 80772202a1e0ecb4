// What a DCH that is broken or hostile may send: thousands of answers that are cut, extended and
// changed at random, but the same in every run. Each must end in the status that its bytes call
// for, worked out here apart from the library, and never in a look behind a message.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <optional>

#include "tests/support/bytes.h"
#include "tests/support/failing_calls.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_answers.h"
#include "zordchcl/zordchcl.h"

namespace {

std::atomic<int> furtherWaits{0};

// A read waits ten seconds for the next datagram of a message. None ever comes here but those that
// are there already, so that wait may end at once.
class FurtherWaits : public testing::Environment {
  void SetUp() override {
    standIns.select = [](int count, fd_set* readSet, fd_set* writeSet, fd_set* otherSet,
                         timeval* limit) {
      if (limit != nullptr && limit->tv_sec == 10) {
        furtherWaits += 1;
        *limit = {};
      }
      return __real_select(count, readSet, writeSet, otherSet, limit);
    };
  }
};

const auto* const ofAllTests = testing::AddGlobalTestEnvironment(new FurtherWaits);

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int rounds = 3000;
constexpr ZORA_Long untouched = 4711;
constexpr ZORA_Long failedReadStatus = 5;

// ---- What they call for ------------------------------------------------------------------------

// The message that one datagram is, if it is one.
std::optional<std::string> messageIn(const std::string& datagram) {
  const std::string read = datagram.substr(0, largestDatagramRead);
  if (read.empty() || numberAt(read, 0, 4) != read.size()) return std::nullopt;
  return read;
}

// The value of the 32-bit field of `type` at `position`, if that is what stands there.
std::optional<ZORA_Long> valueOf(std::uint32_t type, const std::string& message,
                                 std::size_t position) {
  if (position + 10 > message.size() || numberAt(message, position, 2) != type ||
      numberAt(message, position + 2, 4) != 4)
    return std::nullopt;
  return static_cast<ZORA_Long>(numberAt(message, position + 6, 4));
}

struct Outcome {
  int result = 1;
  ZORA_Long status = failedReadStatus;
  ZORA_Long handle = untouched;
  std::string error;  // how the only error line of the request begins, "" for none
};

// `statusWhenMissing` is what the request makes of an answer without its status.
Outcome outcomeOf(const std::string& datagram, ZORA_Long statusWhenMissing, bool hasHandle) {
  Outcome outcome;
  const std::optional<std::string> message = messageIn(datagram);
  if (!message) return outcome;
  const std::optional<ZORA_Long> status = valueOf(DCH_status, *message, 4);
  if (!status) {
    outcome.status = statusWhenMissing;
    outcome.error = "Error: dataType of DCH_status missing: ";
    return outcome;
  }
  const std::optional<ZORA_Long> handle = valueOf(DCH_handle, *message, 14);
  if (hasHandle && !handle) {
    outcome.status = 2;
    outcome.error = "Error: dataType of DCH_handle missing: ";
    return outcome;
  }
  outcome.result = 0;
  outcome.status = *status;
  if (hasHandle) outcome.handle = *handle;
  return outcome;
}

// ---- Requests ----------------------------------------------------------------------------------

// A DCH that answers every request with the bytes set last; but the end of a subscription has no
// answer.
class HostileDch {
 public:
  void setAnswer(const std::string& answer) {
    const std::lock_guard lock(_mutex);
    _answer = answer;
  }

 private:
  std::vector<std::string> answerTo(const std::string& request) {
    if (request.ends_with(bytesOf("0011 00000004 00000000"))) return {};
    const std::lock_guard lock(_mutex);
    return {_answer};
  }

  std::mutex _mutex;
  std::string _answer;
  ScriptedDch _dch{[this](const std::string& request) { return answerTo(request); }};
};

struct Results {
  int result = 99;
  ZORA_Long status = untouched;
  ZORA_Long handle = untouched;
};

struct Request {
  const char* name;
  ZORA_Long statusWhenMissing;
  bool hasHandle;
  void (*make)(Results&);
};

void sendRow(Results& results) {
  char* row = nullptr;
  ZORA_Long size = 0;
  ASSERT_EQ(dp_formatData(&results.status, &row, &size, "load1", "0.25", 4, 'D'), 0);
  results.result = dp_data(&results.status, 815, 17, &row);
  EXPECT_EQ(row, nullptr);
}

const Request requests[] = {
    {"dp_register", 2, false,
     [](Results& r) {
       r.result = dp_register(&r.status, "appl:HOSTMON,HMN;group:load;attr:load1,D,16;");
     }},
    {"dp_online", 2, true,
     [](Results& r) { r.result = dp_online(&r.status, &r.handle, "HOSTMON", "load", "host1"); }},
    {"dp_data", 1, false, sendRow},
    {"dp_offline", 1, false, [](Results& r) { r.result = dp_offline(&r.status, 815); }},
    {"dp_unregister", 1, false, [](Results& r) { r.result = dp_unregister(&r.status, "HOSTMON"); }},
};

class HostileAnswer : public testing::TestWithParam<Request> {};

TEST_P(HostileAnswer, EndsInTheStatusThatItsBytesCallFor) {
  const Request& request = GetParam();
  AnswerGenerator generator(20260131);
  HostileDch dch;
  const TraceCapture trace("0,*/DCHclient::*=0x80");
  int successes = 0;
  int missingFields = 0;
  for (int round = 0; round < rounds; ++round) {
    const auto statusOrHandle = static_cast<ZORA_Long>(generator.below(200)) - 100;
    const std::string answer = generator.mutated(
        generator.below(2) == 0 ? statusAnswer(statusOrHandle) : onlineAnswer(statusOrHandle, 815));
    SCOPED_TRACE(testing::Message()
                 << "round " << round << ": " << testing::PrintToString(answer.substr(0, 60)));
    const Outcome expected = outcomeOf(answer, request.statusWhenMissing, request.hasHandle);
    TraceCapture::forget();
    dch.setAnswer(answer);
    Results results;
    request.make(results);

    ASSERT_EQ(results.result, expected.result);
    ASSERT_EQ(results.status, expected.status);
    ASSERT_EQ(results.handle, expected.handle);
    if (expected.error.empty())
      ASSERT_THAT(trace.texts(), IsEmpty());
    else
      ASSERT_THAT(trace.texts(), ElementsAre(testing::StartsWith(expected.error)));
    successes += expected.result == 0;
    missingFields += !expected.error.empty();
  }
  // The generator is of use only while it leads everywhere.
  EXPECT_GT(successes, rounds / 10);
  EXPECT_GT(missingFields, rounds / 20);
  EXPECT_GT(rounds - successes - missingFields, rounds / 10);
  EXPECT_GT(furtherWaits, 100) << "messages that announce more than they hold";
}

INSTANTIATE_TEST_SUITE_P(Requests, HostileAnswer, testing::ValuesIn(requests),
                         [](const auto& test) { return test.param.name; });

// ---- Rows ------------------------------------------------------------------------------------

TEST(HostileRow, IsDeliveredWholeOrNotAtAll) {
  AnswerGenerator generator(20260201);
  HostileDch dch;
  DCH_api_init();
  const TraceCapture trace("0");
  int delivered = 0;
  int refused = 0;
  for (int round = 0; round < rounds; ++round) {
    const std::string row = generator.mutated(onlineAnswer(1, 2));
    SCOPED_TRACE(testing::Message()
                 << "round " << round << ": " << testing::PrintToString(row.substr(0, 60)));
    // A buffer of exactly its size, so that a byte too many is a fault.
    std::vector<char> buffer(1 + generator.below(row.size() + 10), '#');
    dch.setAnswer(row);
    void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
    ASSERT_NE(handle, nullptr);
    const int result = dc_waitOnData(handle, buffer.data(), static_cast<short>(buffer.size()));

    const std::optional<std::string> message = messageIn(row);
    const bool isDelivered = message && message->size() <= buffer.size();
    ASSERT_EQ(result, isDelivered ? 0 : 1);
    std::string expected = isDelivered ? *message : "";
    expected.resize(buffer.size(), '#');
    ASSERT_EQ(std::string(buffer.data(), buffer.size()), expected);
    ASSERT_EQ(dc_waitOnDataDestroy(handle), result);
    delivered += isDelivered;
    refused += message && !isDelivered;
  }
  EXPECT_GT(delivered, rounds / 10);
  EXPECT_GT(refused, rounds / 10);
  EXPECT_GT(rounds - delivered - refused, rounds / 10);
}

// ---- Messages of several datagrams
// ---------------------------------------------------------------

// What a wait makes of datagrams that are all there when it begins.
int waitFor(const std::vector<std::string>& datagrams) {
  const ScriptedDch dch(never());
  void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
  dch.waitForRequests(1);
  for (const std::string& datagram : datagrams) dch.push(datagram);
  std::vector<char> buffer(32767, '#');
  const int result = dc_waitOnData(handle, buffer.data(), static_cast<short>(buffer.size()));
  const bool isUntouched = buffer == std::vector<char>(buffer.size(), '#');
  EXPECT_EQ(isUntouched, result != 0);
  dc_waitOnDataDestroy(handle);
  return result;
}

// A first datagram of full size that announces a message of `length` bytes.
std::string announcing(std::uint32_t length) {
  std::string first(largestDatagramRead, 'r');
  putNumber(&first, 0, 4, length);
  return first;
}

TEST(HostileDatagrams, MustAddUpToWhatTheFirstAnnounces) {
  DCH_api_init();
  const TraceCapture trace("0");
  EXPECT_EQ(waitFor({announcing(10000), std::string(1808, 'r')}), 0);
}

TEST(HostileDatagrams, MoreBytesThanAnnouncedAreAFailure) {
  DCH_api_init();
  const TraceCapture trace("0");
  EXPECT_EQ(waitFor({announcing(10000), std::string(1809, 'r')}), 1);
}

TEST(HostileDatagrams, FewerBytesThanAnnouncedAreAFailure) {
  DCH_api_init();
  const TraceCapture trace("0");
  EXPECT_EQ(waitFor({announcing(10000), std::string(1807, 'r')}), 1);
}

TEST(HostileDatagrams, AnEmptyOneEndsTheMessage) {
  DCH_api_init();
  const TraceCapture trace("0");
  EXPECT_EQ(waitFor({announcing(10000), "", std::string(1808, 'r')}), 1);
}

TEST(HostileDatagrams, AMessageWithoutEndIsGivenUp) {
  DCH_api_init();
  const TraceCapture trace("0,*/ipcSock::ipcRead=0x80");
  std::vector<std::string> datagrams(20, "r");
  datagrams[0] = announcing(0xffffffffu);
  EXPECT_EQ(waitFor(datagrams), 1);
  EXPECT_THAT(
      trace.texts(),
      testing::Contains(testing::EndsWith("] Max 16 number of 16K buffers already read.\n")));
}

}  // namespace
