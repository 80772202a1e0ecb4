// The catalogue queries of a client: one family, so every test goes over all three.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/fake_transport.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_catalogue.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr ZORA_Long usualWait = 5;

// One query on a client of its own.
struct Asked {
  explicit Asked(const Query& query) : _query(query) {}
  ~Asked() { std::free(buffer); }
  Asked(const Asked&) = delete;
  Asked& operator=(const Asked&) = delete;

  ZORA_Long ask(const char* applName = "HOSTMON", ZORA_Long seconds = usualWait) {
    const ZORA_Long length = (client().*_query.ask)(&buffer, applName, seconds);
    EXPECT_EQ(client()._readBuffer, nullptr);
    return length;
  }
  DCHclient& client() { return faked.client; }

  FakedClient faked;
  char* buffer = nullptr;

 private:
  const Query& _query;
};

// ---- Requests --------------------------------------------------------------------------------

TEST(CatalogueRequest, CarriesItsCodeAndTheName) {
  for (const Query& query : queries) {
    Asked asked(query);
    asked.ask();
    EXPECT_THAT(asked.faked.transport.written, ElementsAre(requestFor(query)));
    EXPECT_THAT(asked.faked.transport.flags, ElementsAre(0u));
  }
}

TEST(CatalogueRequest, ForAllApplicationsIsItsCodeAlone) {
  expectTrace(applications.function(), [] {
    Asked asked(applications);
    asked.faked.transport.answers = {answerOf("x")};
    EXPECT_EQ(asked.ask(nullptr), 1);
    EXPECT_THAT(asked.faked.transport.written, ElementsAre(bytesOf("0000000c 0010 00000002 2040")));
    return applications.asked("", 12, usualWait) + applications.getting +
           Lines{storageLine(applications.allocated), detailLine("Appl Info [1][x]\n"),
                 releasedLine(), exitLine(1)};
  });
}

TEST(CatalogueRequest, ForAnApplicationWithoutANameCarriesAnEmptyOne) {
  for (const Query& query : {attributes, help}) {
    Asked asked(query);
    asked.ask(nullptr);
    EXPECT_THAT(asked.faked.transport.written,
                ElementsAre(bytesOf(std::string("00000013 0010 00000002 ") + query.code +
                                    "0020 00000001 00")));
  }
  Asked asked(applications);
  asked.ask("");
  EXPECT_THAT(asked.faked.transport.written,
              ElementsAre(bytesOf("00000013 0010 00000002 2040 0020 00000001 00")));
}

TEST(CatalogueRequest, IsTheSameWhateverWasInTheBuffer) {
  for (const Query& query : queries) {
    Asked asked(query);
    char* const buffer = asked.client()._msgBuffer;
    std::fill_n(buffer, sizeof asked.client()._msgBuffer, '#');
    asked.ask();
    EXPECT_THAT(asked.faked.transport.written, ElementsAre(requestFor(query)));
    const char left = query.name == applications.name ? '\0' : '#';
    EXPECT_EQ(std::string(buffer + requestLength, 4096 - requestLength),
              std::string(4096 - requestLength, left))
        << query.name;
  }
}

TEST(CatalogueRequest, DumpsTheMessageBehindItsHeading) {
  for (const Query& query : queries) {
    Asked asked(query);
    const TraceCapture trace("0x04");
    asked.ask();
    const std::vector<std::string> texts = trace.texts();
    ASSERT_EQ(texts.size(), 3u);
    EXPECT_EQ(texts[0], "DUMP[26] of " + query.name + " request.\n");
    EXPECT_EQ(texts[2], "0010  00 08 48 4f 53 54 4d 4f 4e 00                    |..HOSTMON.|\n");
  }
}

TEST(CatalogueRequest, PassesItsWaitOn) {
  for (const Query& query : queries) {
    for (const ZORA_Long seconds : {0, 1, 5, 32767, -1, -32768}) {
      Asked asked(query);
      asked.ask("HOSTMON", seconds);
      EXPECT_THAT(asked.faked.transport.waits, ElementsAre(seconds));
    }
  }
}

TEST(CatalogueRequest, ThatIsNotWrittenWholeIsAFailureAtOnce) {
  for (const Query& query : queries) {
    for (const ZORA_Long count : {-1, 0, requestLength - 1, requestLength + 1}) {
      expectTrace(query.function(), [&] {
        Asked asked(query);
        asked.faked.transport.writeResult = count;
        asked.faked.transport.answers = {answerOf("unread")};
        EXPECT_EQ(asked.ask(), 0);
        EXPECT_EQ(asked.buffer, nullptr);
        EXPECT_EQ(asked.client()._clientError, 1);
        EXPECT_THAT(asked.faked.transport.waits, IsEmpty());
        return query.unwritten("HOSTMON", requestLength, usualWait) +
               Lines{writeErrorLine(query.name), exitLine(0)};
      });
    }
  }
}

TEST(CatalogueRequest, HasRoomForTheLongestNameAndNoMore) {
  const std::string longest(4077, 'n');
  for (const Query& query : queries) {
    Asked fitting(query);
    fitting.faked.transport.answers = {answerOf("x")};
    EXPECT_EQ(fitting.ask(longest.c_str()), 1);
    EXPECT_EQ(fitting.faked.transport.written.at(0).size(), 4096u);
    expectTrace(query.function(), [&] {
      Asked asked(query);
      EXPECT_EQ(asked.ask((longest + "n").c_str()), 0);
      EXPECT_EQ(asked.client()._clientError, 1);
      EXPECT_THAT(asked.faked.transport.written, IsEmpty());
      EXPECT_THAT(asked.faked.transport.waits, IsEmpty());
      Lines lines = {entryLine()};
      if (query.showsItsArguments)
        lines.push_back(detailLine("applName <" + longest + "n> wait=5\n"));
      return lines +
             Lines{errorLine("Error: " + query.name + " message is longer than 4096 bytes\n"),
                   exitLine(0)};
    });
  }
}

TEST(CatalogueRequest, SendsNothingOnceTheLatchIsSet) {
  for (const Query& query : queries) {
    for (const ZORA_Long latch : {1, 4}) {
      expectTrace(query.function(), [&] {
        Asked asked(query);
        asked.client()._clientError = latch;
        EXPECT_EQ(asked.ask(), 0);
        EXPECT_EQ(asked.buffer, nullptr);
        EXPECT_THAT(asked.faked.transport.written, IsEmpty());
        return Lines{entryLine(), exitLine(0)};
      });
    }
  }
}

// ---- Answers ---------------------------------------------------------------------------------

TEST(CatalogueAnswer, IsHandedOverWithAZeroBehindIt) {
  for (const Query& query : queries) {
    expectTrace(query.function(), [&] {
      Asked asked(query);
      asked.faked.transport.answers = {answerOf("two\nlines")};
      EXPECT_EQ(asked.ask(), 9);
      EXPECT_EQ(asked.client()._clientError, 0);
      EXPECT_STREQ(asked.buffer, "two\nlines");
      return query.asked("HOSTMON", requestLength, usualWait) + query.getting +
             Lines{storageLine(query.allocated),
                   detailLine(textOf(query.answerFormat, 9, "two\nlines")), releasedLine(),
                   exitLine(9)};
    });
  }
}

TEST(CatalogueAnswer, NamesTheBlockByItsAddress) {
  for (const Query& query : queries) {
    Asked asked(query);
    asked.faked.transport.answers = {answerOf("x")};
    const TraceCapture trace("0x02");
    asked.ask();
    std::string expected = query.allocated;
    expected.replace(expected.find("{address}"), 9, textOf("%p", static_cast<void*>(asked.buffer)));
    EXPECT_EQ(trace.texts().at(0), expected);
  }
}

TEST(CatalogueAnswer, KeepsEveryByte) {
  std::string bytes;
  for (int i = 0; i < 60000; ++i) bytes += static_cast<char>(i * 7 % 256);
  for (const Query& query : queries) {
    Asked asked(query);
    asked.faked.transport.answers = {answerOf(bytes)};
    ASSERT_EQ(asked.ask(), 60000);
    EXPECT_EQ(std::string(asked.buffer, 60001), bytes + '\0');
  }
}

TEST(CatalogueAnswer, ThatIsEmptyIsABlockOfOneZero) {
  for (const Query& query : queries) {
    expectTrace(query.function(), [&] {
      Asked asked(query);
      asked.faked.transport.answers = {answerOf("")};
      EXPECT_EQ(asked.ask(), 0);
      EXPECT_EQ(asked.client()._clientError, 0);
      EXPECT_STREQ(asked.buffer, "");
      return query.asked("HOSTMON", requestLength, usualWait) + query.getting +
             Lines{storageLine(query.allocated), detailLine(textOf(query.answerFormat, 0, "")),
                   releasedLine(), exitLine(0)};
    });
  }
}

TEST(CatalogueAnswer, FieldsBehindItAreNotLookedAt) {
  for (const Query& query : queries) {
    Asked asked(query);
    asked.faked.transport.answers = {bytesOf("00000012 0012 00000001 'x' ffff 7fffffff 00")};
    EXPECT_EQ(asked.ask(), 1);
    EXPECT_STREQ(asked.buffer, "x");
  }
}

void expectNoResponseField(const Query& query, const std::string& answer, int type) {
  expectTrace(query.function(), [&] {
    Asked asked(query);
    asked.faked.transport.answers = {answer};
    EXPECT_EQ(asked.ask(), 0);
    EXPECT_EQ(asked.buffer, nullptr);
    EXPECT_EQ(asked.client()._clientError, 1);
    return query.asked("HOSTMON", requestLength, usualWait) + query.getting +
           Lines{errorLine(textOf("Error: dataType of DCH_response missing: %d\n", type)),
                 releasedLine(), exitLine(0)};
  });
}

TEST(CatalogueAnswer, OfAnotherTypeIsAFailure) {
  for (const Query& query : queries) {
    expectNoResponseField(query, statusAnswer(0), DCH_status);
    expectNoResponseField(query, bytesOf("0000000b 03e7 00000001 'x'"), 999);
    expectNoResponseField(query, bytesOf("0000000a ffff 00000000"), -1);
  }
}

TEST(CatalogueAnswer, WithoutAWholeFieldIsAFailure) {
  for (const Query& query : queries) {
    expectNoResponseField(query, bytesOf("00000004"), 0);
    expectNoResponseField(query, bytesOf("00000009 0012 000000"), 0);
    expectNoResponseField(query, bytesOf("0000000d 0012 00000004 'abc'"), 0);
    expectNoResponseField(query, bytesOf("0000000d 0012 7fffffff 'abc'"), 0);
    expectNoResponseField(query, bytesOf("0000000d 0012 ffffffff 'abc'"), 0);
  }
}

// ---- Reads that fail -------------------------------------------------------------------------

// A query whose read answers `count` with nothing read leaves these errors.
void expectFailedRead(const Query& query, ZORA_Long seconds, ZORA_Long count, const Lines& errors) {
  expectTrace(query.function(), [&] {
    Asked asked(query);
    asked.faked.transport.failedRead = count;
    EXPECT_EQ(asked.ask("HOSTMON", seconds), 0);
    EXPECT_EQ(asked.buffer, nullptr);
    EXPECT_EQ(asked.client()._clientError, 1);
    return query.asked("HOSTMON", requestLength, seconds) + errors + Lines{exitLine(0)};
  });
}

TEST(CatalogueReadFailure, OfApplicationsIsToldForAWaitOfOneSecondOnly) {
  for (const ZORA_Long count : {-1, 0, 8192}) {
    expectFailedRead(applications, 1, count,
                     {errorLine("Error: ipcRead with wait[1 second] failed\n")});
    for (const ZORA_Long seconds : {0, 2, 5, -1})
      expectFailedRead(applications, seconds, count, {});
  }
}

TEST(CatalogueReadFailure, OfAttributesAndHelpIsToldForEveryWait) {
  for (const Query& query : {attributes, help}) {
    for (const int seconds : {0, 1, 2, 5, -1}) {
      for (const ZORA_Long count : {-1, 0, 8192})
        expectFailedRead(query, seconds, count,
                         {errorLine(textOf("Error: while waiting %d second(s) for %s response.\n",
                                           seconds, query.name.c_str()))});
    }
  }
}

}  // namespace
