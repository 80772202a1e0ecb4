// Every answer that differs from a good one in one byte, is cut short anywhere, or comes cut into
// pieces at any two places: each ends as its bytes call for, and the next request gets its own
// answer. Over real sockets, with a DCH that acts when the library waits.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/scripted_dch.h"
#include "tests/support/stepped_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/DCHclient.h"
#include "zordchcl/test_answers.h"
#include "zordchcl/zordchcl.h"
#include "zordsock/settings.h"
#include "zordsock/zordsock.h"

namespace {

constexpr ZORA_Long untouched = 4711;

using Datagrams = std::vector<std::string>;

// What the caller of a request sees; texts and rows as they were handed over.
struct Outcome {
  int result = 99;
  ZORA_Long status = untouched;
  ZORA_Long number = untouched;
  std::string bytes{};
  bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& outcome, std::ostream* stream) {
  *stream << "result " << outcome.result << ", status " << outcome.status << ", number "
          << outcome.number << ", bytes " << testing::PrintToString(outcome.bytes);
}

// One kind of exchange: its good answer, what a failed read of it comes to, and its calls, before
// which the DCH is told what to expect.
struct Exchange {
  const char* name;
  std::string goodAnswer;
  Outcome good;
  Outcome noMessage;
  std::function<Outcome(SteppedDch&)> make;
};

std::string onWire(ZORA_Long number) {
  std::string bytes(4, '\0');
  putNumber(&bytes, 0, bytes.size(), static_cast<std::uint32_t>(number));
  return bytes;
}

void expectToldBy(const std::string& answer, const Outcome& outcome) {
  for (const ZORA_Long number : {outcome.status, outcome.number})
    EXPECT_TRUE(number == untouched || answer.find(onWire(number)) != std::string::npos) << number;
  EXPECT_NE(answer.find(outcome.bytes), std::string::npos);
}

class Sweep : public testing::TestWithParam<Exchange> {
 protected:
  Sweep() {
    setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", "1", 1);
    DCH_api_init();
  }

  Outcome outcomeOf(Datagrams datagrams) {
    _datagrams = std::move(datagrams);
    return GetParam().make(_dch);
  }

  void expectThatTheNextRequestIsAnswered() { ASSERT_EQ(outcomeOf({_answer}), GetParam().good); }

  const std::string _answer = GetParam().goodAnswer;
  const TraceCapture _trace{"0"};

 private:
  Datagrams _datagrams;
  SteppedDch _dch{[this](const std::string&, unsigned short port) {
    std::vector<SteppedDch::Datagram> sent;
    for (const std::string& bytes : _datagrams) sent.push_back({port, bytes});
    return sent;
  }};
};

TEST_P(Sweep, OfTruncatedAnswersGivesNoMessage) {
  for (std::size_t size = 0; size < _answer.size(); ++size) {
    SCOPED_TRACE(size);
    ASSERT_EQ(outcomeOf({_answer.substr(0, size)}), GetParam().noMessage);
    expectThatTheNextRequestIsAnswered();
  }
}

// The pieces make the message again, unless the first has no whole length word or one is empty.
TEST_P(Sweep, OfAnswersInThreePiecesGivesTheMessageOrNone) {
  for (std::size_t first = 0; first <= _answer.size(); ++first)
    for (std::size_t second = first; second <= _answer.size(); ++second) {
      SCOPED_TRACE(testing::Message() << "cut at " << first << " and " << second);
      const Datagrams pieces{_answer.substr(0, first), _answer.substr(first, second - first),
                             _answer.substr(second)};
      const bool isWhole = first == _answer.size() || (first >= 4 && second > first);
      ASSERT_EQ(outcomeOf(pieces), isWhole ? GetParam().good : GetParam().noMessage);
    }
  expectThatTheNextRequestIsAnswered();
}

// A wrong length word makes it no message. Behind that, what is still told has to be in the bytes;
// that nothing else is looked at is for the sanitizer to see.
TEST_P(Sweep, OfAnswersWithOneOtherByteGivesWhatIsInThem) {
  for (std::size_t position = 0; position < _answer.size(); ++position)
    for (const int change : {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0xFF}) {
      SCOPED_TRACE(testing::Message() << "byte " << position << " changed by " << change);
      std::string answer = _answer;
      answer[position] = static_cast<char>(answer[position] ^ change);
      const Outcome outcome = outcomeOf({answer, std::string(253, '\xFF')});
      if (position < ZOR0_LENGTH_WORD_SIZE) {
        ASSERT_EQ(outcome, GetParam().noMessage);
      }
      if (outcome.result != GetParam().noMessage.result) expectToldBy(answer, outcome);
    }
  expectThatTheNextRequestIsAnswered();
}

// The length word that a first piece seems to have, filled up with zeroes, is that of all pieces.
TEST_P(Sweep, OfLengthWordsInPiecesGivesNoMessage) {
  for (const std::string& first : {std::string("\0\0\1", 3), std::string("\0\1", 2)}) {
    const std::size_t announced = first.size() == 3 ? 0x100 : 0x10000;
    for (int filling = 0; filling < 256; ++filling) {
      Datagrams pieces{first};
      for (std::size_t left = announced - first.size(); left > 0;) {
        const std::size_t size = std::min<std::size_t>(left, UDP_CHUNK_SIZE);
        pieces.emplace_back(size, static_cast<char>(filling));
        left -= size;
      }
      ASSERT_EQ(outcomeOf(pieces), GetParam().noMessage) << filling;
    }
  }
  expectThatTheNextRequestIsAnswered();
}

// ---- The exchanges -----------------------------------------------------------------------------

// What the library has not read of an answer is not for the next request.
template <class Request>
std::function<Outcome(SteppedDch&)> answered(Request request) {
  return [request](SteppedDch& dch) {
    dch.expectRequest();
    Outcome outcome;
    request(&outcome);
    dch.throwAwayUnread(zordsock::_UDPSockList[0].sockUDP);
    return outcome;
  };
}

Exchange withStatus(const char* name, int (*request)(ZORA_Long* status)) {
  return {name,
          statusAnswer(103),
          {.result = 0, .status = 103},
          {.result = 1, .status = 5},
          answered([request](Outcome* outcome) { outcome->result = request(&outcome->status); })};
}

Exchange withText(const char* name, int (*question)(ZORA_Long*, char**, const char*, short)) {
  const std::string text = "HOSTMON,HMN,SOCK,load,1\n";
  const auto length = static_cast<ZORA_Long>(text.size());
  return {name,
          messageOf([&](DCH_MessageBuilder& message) {
            message.addBytes(DCH_response, text.data(), length);
          }),
          {.result = 0, .number = length, .bytes = text},
          {.result = 1, .number = 0},
          answered([question](Outcome* outcome) {
            char* answer = nullptr;
            outcome->result = question(&outcome->number, &answer, "HOSTMON", 5);
            if (answer != nullptr)
              outcome->bytes.assign(answer, static_cast<std::size_t>(outcome->number));
            std::free(answer);
          })};
}

int sendRow(ZORA_Long* status) {
  char* row = nullptr;
  ZORA_Long size = 0;
  dp_formatData(status, &row, &size, "load1", "0.25", 4, 'D');
  return dp_data(status, 815, 17, &row);
}

// A subscription that failed is of no more use: each message is pushed to one of its own.
Outcome waitForRow(SteppedDch& dch) {
  void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
  dch.takeRequest();
  dch.expectWait();
  const ZORA_Long capacity = 1024;
  const std::unique_ptr<char[]> row(new char[capacity]);
  Outcome outcome;
  outcome.result = dc_waitOnData(handle, row.get(), capacity);
  if (outcome.result == 0) outcome.bytes.assign(row.get(), ZOR0_MessageLength(row.get()));
  if (dc_waitOnDataDestroy(handle) == 0) dch.takeRequest();
  return outcome;
}

Outcome waitForStatus(SteppedDch& dch) {
  void* const handle = dc_waitForDPStatusInitialize();
  dch.takeRequest();
  dch.expectWait();
  const char* const text = dc_waitForDPStatus(handle);
  Outcome outcome{.result = text != nullptr ? 0 : 1};
  // The first of its names; the others, and the code as a number, stand behind it.
  if (text != nullptr) outcome.bytes.assign(text, std::strcspn(text, ","));
  if (dc_waitForDPStatusDestroy(handle) == 0) dch.takeRequest();
  return outcome;
}

const std::string pushedRow = messageOf([](DCH_MessageBuilder& row) {
  row.add(DCH_requestType, short{DCH_REQUEST_DATA})
      .add(DCH_handle, ZORA_Long{815})
      .add(DCH_dataCode, short{1});
});
const std::string statusEvent = messageOf([](DCH_MessageBuilder& event) {
  event.add(DCH_applName, "HOSTMON")
      .add(DCH_attrGroup, "load")
      .add(DCH_sourceName, "host1")
      .add(DCH_requestType, short{DCH_REQUEST_ONLINE});
});

const Exchange exchanges[] = {
    withStatus("dp_offline", [](ZORA_Long* status) { return dp_offline(status, 815); }),
    withStatus("dp_data", sendRow),
    {"dp_online",
     onlineAnswer(103, 815),
     {.result = 0, .status = 103, .number = 815},
     {.result = 1, .status = 5},
     answered([](Outcome* outcome) {
       outcome->result = dp_online(&outcome->status, &outcome->number, "HOSTMON", "load", "host1");
     })},
    {"dc_waitForActionResults",
     statusAnswer(103),
     {.result = 103},
     {.result = -1},
     answered([](Outcome* outcome) { outcome->result = dc_waitForActionResults(17); })},
    withText("dc_getApplications", dc_getApplications),
    withText("dc_getApplAttributes", dc_getApplAttributes),
    withText("dc_getApplHelp", dc_getApplHelp),
    {"dc_waitOnData", pushedRow, {.result = 0, .bytes = pushedRow}, {.result = 1}, waitForRow},
    {"dc_waitForDPStatus",
     statusEvent,
     {.result = 0, .bytes = "HOSTMON"},
     {.result = 1},
     waitForStatus},
};

INSTANTIATE_TEST_SUITE_P(Answers, Sweep, testing::ValuesIn(exchanges),
                         [](const auto& test) { return test.param.name; });

}  // namespace
