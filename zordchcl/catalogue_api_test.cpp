// The exported catalogue functions: what the caller gets, and the scope around the query.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <iterator>
#include <thread>

#include "tests/support/trace_capture.h"
#include "zordchcl/test_catalogue.h"

namespace {

using testing::ElementsAre;

using Records = std::vector<std::pair<std::string, std::string>>;

constexpr char endOfClient[] = "DCHclient::~DCHclient";

// What a caller gets. Its variables hold something else before.
struct Reply {
  explicit Reply(const Query& query, const char* applName = "HOSTMON", short wait = 5)
      : result(query.call(&length, &buffer, applName, wait)) {}
  ~Reply() {
    if (buffer != before) std::free(buffer);
  }
  Reply(const Reply&) = delete;
  Reply& operator=(const Reply&) = delete;

  char before[1] = {'#'};
  ZORA_Long length = 4711;
  char* buffer = before;
  int result;
};

void expectFailure(const Reply& reply) {
  EXPECT_EQ(reply.result, 1);
  EXPECT_EQ(reply.length, 0);
  EXPECT_EQ(reply.buffer, nullptr);
}

TraceLine failedLine(const Query& query) {
  return errorLine("Error: " + query.name + " failed.\n");
}

TEST(CatalogueApi, GivesTheAnswerInABlockOfTheCallers) {
  const ScriptedDch dch(always(answerOf("two\nlines")));
  for (const Query& query : queries) {
    expectTrace(query.name, [&] {
      const Reply reply(query);
      EXPECT_EQ(reply.result, 0);
      EXPECT_EQ(reply.length, 9);
      EXPECT_STREQ(reply.buffer, "two\nlines");
      EXPECT_EQ(dch.requests().back(), requestFor(query));
      return Lines{entryLine(), detailLine("buffer[9][two\nlines]\n"), exitLine(0)};
    });
  }
}

TEST(CatalogueApi, AsksForAllApplicationsWithoutAName) {
  const ScriptedDch dch(always(answerOf("x")));
  const Reply reply(applications, nullptr);
  EXPECT_EQ(reply.result, 0);
  EXPECT_THAT(dch.requests(), ElementsAre(bytesOf("0000000c 0010 00000002 2040")));
}

TEST(CatalogueApi, JoinsAnAnswerOfSeveralDatagrams) {
  std::string text;
  while (text.size() < 20000) text += "line " + std::to_string(text.size()) + "\n";
  const std::string answer = answerOf(text);
  const ScriptedDch dch([&](const std::string&) {
    std::vector<std::string> datagrams;
    for (std::size_t sent = 0; sent < answer.size(); sent += 8192)
      datagrams.push_back(answer.substr(sent, 8192));
    return datagrams;
  });
  for (const Query& query : queries) {
    const Reply reply(query);
    EXPECT_EQ(reply.result, 0);
    EXPECT_EQ(reply.length, static_cast<ZORA_Long>(text.size()));
    EXPECT_STREQ(reply.buffer, text.c_str());
  }
}

TEST(CatalogueApi, AnEmptyAnswerIsAFailure) {
  const ScriptedDch dch(always(answerOf("")));
  for (const Query& query : queries) {
    expectTrace(query.name, [&] {
      expectFailure(Reply(query));
      return Lines{entryLine(), failedLine(query), exitLine(1)};
    });
  }
}

TEST(CatalogueApi, AnAnswerWithoutAResponseFieldIsAFailure) {
  const ScriptedDch dch(always(statusAnswer(0)));
  for (const Query& query : queries) {
    expectTrace(query.name, [&] {
      expectFailure(Reply(query));
      return Lines{entryLine(), failedLine(query), exitLine(1)};
    });
    const TraceCapture trace("0x80");
    expectFailure(Reply(query));
    EXPECT_THAT(trace.texts(), ElementsAre("Error: dataType of DCH_response missing: 17\n",
                                           "Error: " + query.name + " failed.\n"));
  }
}

TEST(CatalogueApi, DatagramsThatAreNoMessagesAreFailures) {
  const std::string datagrams[] = {
      "",                                        // no byte
      bytesOf("00"),                             // less than a length word
      bytesOf("00000000"),                       // the length word of nothing
      bytesOf("00000003 00"),                    // a length that is its word's own part
      bytesOf("00000004 0012 00000001 'x'"),     // more than announced
      bytesOf("00000004"),                       // no fields
      bytesOf("0000000b 0012 00000002 'x'"),     // a field that goes beyond
      bytesOf("0000000e 0012 fffffff0 'abcd'"),  // a field that goes far beyond
      bytesOf("0000000e 0012 7fffffff 'abcd'"),  // the largest length
  };
  // The application's name says which one is wanted.
  const ScriptedDch dch([&](const std::string& request) {
    return std::vector<std::string>{datagrams[request.at(request.size() - 2) - '0']};
  });
  for (std::size_t i = 0; i < std::size(datagrams); ++i)
    for (const Query& query : queries) expectFailure(Reply(query, std::to_string(i).c_str()));
  EXPECT_EQ(dch.requests().size(), 3 * std::size(datagrams));
}

TEST(CatalogueApi, WaitsAsLongAsAskedForAnAnswer) {
  const ScriptedDch dch(never());
  const std::string readErrors[] = {
      "Error: ipcRead with wait[1 second] failed\n",
      "Error: while waiting 1 second(s) for dc_getApplAttributes response.\n",
      "Error: while waiting 1 second(s) for dc_getApplHelp response.\n",
  };
  for (int i = 0; i < 3; ++i) {
    const TraceCapture trace("zordchcl/*=0x80,zordsock/*=0");
    const auto start = std::chrono::steady_clock::now();
    expectFailure(Reply(queries[i], "HOSTMON", 1));
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(passed.count(), 1.0);
    EXPECT_LT(passed.count(), 5.0);
    EXPECT_THAT(trace.texts(),
                ElementsAre(readErrors[i], "Error: " + queries[i].name + " failed.\n"));
  }
}

TEST(CatalogueApi, OverLocalProcedureCallsFailsAtOnce) {
  setenv("ZORA_DCH_IPCTYPE", "2", 1);
  for (const Query& query : queries) {
    const TraceCapture trace("*/DCHclient::dc_*=0x80,*/dc_*=0x80,*/DCHclient::~*=0");
    expectFailure(Reply(query));
    EXPECT_THAT(trace.texts(),
                ElementsAre("Error: writing " + query.name + " message to DCHserver\n",
                            "Error: " + query.name + " failed.\n"));
  }
}

// The lines of the exported function and of the end of its client, in order.
Records linesAroundTheEnd(const Query& query, unsigned mask) {
  const TraceCapture trace(textOf("0x%x", mask).c_str());
  { const Reply reply(query); }
  Records lines;
  for (const CapturedRecord& record : trace.records())
    if (record.function == query.name || record.function == endOfClient)
      lines.emplace_back(record.function, record.text);
  return lines;
}

TEST(CatalogueApi, ShowsTheAnswerOnceTheClientIsGone) {
  const ScriptedDch dch(always(answerOf("x")));
  for (const Query& query : queries) {
    const Records lines = linesAroundTheEnd(query, TRC1_CLASS_DETAIL);
    ASSERT_GT(lines.size(), 1u);
    EXPECT_EQ(lines.back(), std::make_pair(query.name, std::string("buffer[1][x]\n")));
    EXPECT_EQ(lines.front().first, endOfClient);
  }
}

TEST(CatalogueApi, ReportsAFailureBeforeTheClientIsGone) {
  const ScriptedDch dch(always(answerOf("")));
  for (const Query& query : queries) {
    const Records lines = linesAroundTheEnd(query, TRC1_CLASS_ERROR | TRC1_CLASS_DETAIL);
    ASSERT_GT(lines.size(), 1u);
    EXPECT_EQ(lines.front(), std::make_pair(query.name, failedLine(query).text));
    EXPECT_EQ(lines.back().first, endOfClient);
  }
}

TEST(CatalogueApi, GivesItsPooledSocketBack) {
  setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", "1", 1);
  const ScriptedDch dch(always(answerOf("x")));
  for (int round = 0; round < 3; ++round)
    for (const Query& query : queries) EXPECT_EQ(Reply(query).result, 0);
}

TEST(CatalogueApi, QueriesOfManyThreadsDoNotMix) {
  // The answer is the request, so that each thread knows its own.
  const ScriptedDch dch(
      [](const std::string& request) { return std::vector<std::string>{answerOf(request)}; });
  std::vector<std::string> failures(4);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < failures.size(); ++i) {
    threads.emplace_back([&failures, i] {
      const std::string name = "APPL" + std::to_string(i);
      for (int round = 0; round < 30; ++round) {
        const Query& query = queries[round % 3];
        const Reply reply(query, name.c_str());
        const std::string bytes =
            reply.result == 0 ? std::string(reply.buffer, static_cast<std::size_t>(reply.length))
                              : "";
        if (bytes != bytesOf(std::string("00000018 0010 00000002 ") + query.code +
                             "0020 00000006 '" + name + "' 00"))
          failures[i] = "round " + std::to_string(round);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(failures, ElementsAre("", "", "", ""));
}

}  // namespace
