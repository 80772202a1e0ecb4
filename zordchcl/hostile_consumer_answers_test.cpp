// What a DCH that is broken or hostile may send to a consumer: thousands of answers and
// notifications that are cut, extended and changed at random. Each must end as its bytes call for,
// worked out here apart from the library. A message is a block of exactly its size, so that a look
// behind it is a fault.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <initializer_list>

#include "tests/support/fake_transport.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_answers.h"
#include "zordchcl/test_catalogue.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int consumerRounds = 5000;

// A message with up to three changes; its length word is right, as the transport demands.
std::string hostile(AnswerGenerator& generator, const std::string& valid) {
  std::string message = generator.mutated(valid);
  if (message.size() < 4) message.resize(4);
  putNumber(&message, 0, 4, static_cast<std::uint32_t>(message.size()));
  return message;
}

// One field of a message, or what stands where none can be read: type 0.
struct Field {
  short type = 0;
  std::string value;
  std::size_t end = 0;
};

bool isOneOf(short type, std::initializer_list<short> types) {
  return std::find(types.begin(), types.end(), type) != types.end();
}

Field fieldAt(const std::string& message, std::size_t position) {
  if (position + 6 > message.size()) return {};
  const auto type = static_cast<short>(numberAt(message, position, 2));
  const std::size_t count = numberAt(message, position + 2, 4);
  if (count > message.size() - position - 6) return {};
  const std::string value = message.substr(position + 6, count);
  if (isOneOf(type, {16, 112, 256}) && count != 2) return {};
  if (isOneOf(type, {17, 128, 288, 352, 368}) && count != 4) return {};
  if (isOneOf(type, {32, 33, 34, 35, 36, 80, 272, 304, 336}) && value.find('\0') == value.npos)
    return {};
  if (type == 81 && count == 0) return {};
  return {type, value, position + 6 + count};
}

std::string missing(const char* name, short type) {
  return textOf("Error: dataType of %s missing: %d\n", name, type);
}

// The generator is of use only while it leads everywhere.
void expectBothEnds(int successes) {
  EXPECT_GT(successes, consumerRounds / 10);
  EXPECT_LT(successes, consumerRounds - consumerRounds / 10);
}

TEST(HostileConsumerAnswer, OfTheCatalogueIsHandedOverAsItIsOrNotAtAll) {
  AnswerGenerator generator(20260202);
  const TraceCapture trace("0,*/DCHclient::*=0x80");
  int successes = 0;
  for (int round = 0; round < consumerRounds; ++round) {
    const std::string answer = hostile(generator, answerOf("HOSTMON,HMN,SOCK,load,1\n"));
    SCOPED_TRACE(testing::PrintToString(answer.substr(0, 60)));
    const Field field = fieldAt(answer, 4);
    TraceCapture::forget();
    FakedClient faked;
    faked.transport.answers = {answer};
    char* buffer = nullptr;
    const ZORA_Long length = (faked.client.*queries[round % 3].ask)(&buffer, "HOSTMON", 5);
    ASSERT_EQ(faked.client._readBuffer, nullptr);
    if (field.type == DCH_response) {
      ASSERT_EQ(length, static_cast<ZORA_Long>(field.value.size()));
      ASSERT_EQ(std::string(buffer, field.value.size() + 1), field.value + '\0');
      ASSERT_THAT(trace.texts(), IsEmpty());
      ++successes;
    } else {
      ASSERT_EQ(length, 0);
      ASSERT_EQ(buffer, nullptr);
      ASSERT_EQ(faked.client._clientError, 1);
      ASSERT_THAT(trace.texts(), ElementsAre(missing("DCH_response", field.type)));
    }
    std::free(buffer);
  }
  expectBothEnds(successes);
}

TEST(HostileConsumerAnswer, ForActionResultsIsAStatusOrNone) {
  AnswerGenerator generator(20260203);
  const TraceCapture trace("0,*/DCHclient::*=0x80");
  int successes = 0;
  for (int round = 0; round < consumerRounds; ++round) {
    const std::string answer = hostile(generator, statusAnswer(42));
    SCOPED_TRACE(testing::PrintToString(answer.substr(0, 60)));
    const Field field = fieldAt(answer, 4);
    TraceCapture::forget();
    FakedClient faked;
    faked.transport.answers = {answer};
    const ZORA_Long result = faked.client.dc_waitForActionResults(17);
    if (field.type == DCH_status) {
      ASSERT_EQ(result, static_cast<ZORA_Long>(numberAt(field.value, 0, 4)));
      ASSERT_THAT(trace.texts(), IsEmpty());
      ++successes;
    } else {
      ASSERT_EQ(result, -1);
      ASSERT_THAT(trace.texts(), ElementsAre(missing("DCH_status", field.type)));
    }
  }
  expectBothEnds(successes);
}

// ---- Notifications ---------------------------------------------------------------------------

struct TextOutcome {
  std::string text;
  std::string error;  // instead of the text
};

TextOutcome outcomeOf(const std::string& notification) {
  struct Expected {
    short type;
    const char* name;
    std::size_t limit;
  };
  const Expected names[] = {{DCH_applName, "DCH_applName", 20},
                            {DCH_attrGroup, "DCH_attrGroup", 32},
                            {DCH_sourceName, "DCH_sourceName", 32}};
  TextOutcome outcome;
  std::size_t position = 4;
  for (const Expected& expected : names) {
    const Field field = fieldAt(notification, position);
    if (field.type != expected.type) return {"", missing(expected.name, field.type)};
    outcome.text += std::string(field.value.c_str()).substr(0, expected.limit) + ",";
    position = field.end;
  }
  const Field field = fieldAt(notification, position);
  if (field.type != DCH_requestType) return {"", missing("DCH_requestType", field.type)};
  outcome.text += std::to_string(static_cast<short>(numberAt(field.value, 0, 2)));
  return outcome;
}

TEST(HostileNotification, BecomesItsTextOrNull) {
  AnswerGenerator generator(20260204);
  const TraceCapture trace("0,*/DCHclient::*=0x80");
  int successes = 0;
  for (int round = 0; round < consumerRounds; ++round) {
    const std::string notification =
        hostile(generator, messageOf([&](DCH_MessageBuilder& message) {
                  message.add(DCH_applName, std::string(generator.below(24), 'A').c_str())
                      .add(DCH_attrGroup, std::string(generator.below(40), 'g').c_str())
                      .add(DCH_sourceName, std::string(generator.below(40), 's').c_str())
                      .add(DCH_requestType, static_cast<short>(generator.below(65536)));
                }));
    SCOPED_TRACE(testing::PrintToString(notification.substr(0, 150)));
    const TextOutcome expected = outcomeOf(notification);
    TraceCapture::forget();
    FakedClient faked;
    faked.transport.answers = {notification};
    const char* const text = faked.client.dc_waitForDPStatus();
    ASSERT_EQ(faked.client._readBuffer, nullptr);
    if (expected.error.empty()) {
      ASSERT_NE(text, nullptr);
      ASSERT_EQ(text, expected.text);
      ASSERT_THAT(trace.texts(), IsEmpty());
      ++successes;
    } else {
      ASSERT_EQ(text, nullptr);
      ASSERT_EQ(faked.client._clientError, 1);
      ASSERT_THAT(trace.texts(), ElementsAre(expected.error));
    }
  }
  expectBothEnds(successes);
}

}  // namespace
