// Catalogue queries without memory: none for the client, or none for the answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/failing_calls.h"
#include "tests/support/fake_transport.h"
#include "zordchcl/test_catalogue.h"

namespace {

// While it lives, there is no block for an answer.
class WithoutBlocks {
  FailingCall _failing{{SystemCall::cMemory}, ENOMEM};
};

using testing::IsEmpty;

constexpr ZORA_Long wait = 5;

TEST(WithoutABlockForTheAnswer, TheQueryKeepsItsLength) {
  for (const Query& query : queries) {
    expectTrace(query.function(), [&] {
      FakedClient faked;
      faked.transport.answers = {answerOf("hello")};
      char before[] = "before";
      char* buffer = before;
      const WithoutBlocks without;
      EXPECT_EQ((faked.client.*query.ask)(&buffer, "HOSTMON", wait), 5);
      EXPECT_EQ(buffer, nullptr);
      EXPECT_EQ(faked.client._clientError, 4);
      EXPECT_EQ(faked.client._readBuffer, nullptr);
      return query.asked("HOSTMON", requestLength, wait) + query.getting +
             Lines{errorLine("Error: allocating 6 bytes for buffer\n"), releasedLine(),
                   exitLine(5)};
    });
  }
}

TEST(WithoutABlockForTheAnswer, TheClientIsOfNoMoreUse) {
  FakedClient faked;
  faked.transport.answers = {answerOf("hello"), answerOf("hello")};
  char* buffer = nullptr;
  {
    const WithoutBlocks without;
    faked.client.dc_getApplications(&buffer, "HOSTMON", wait);
  }
  EXPECT_EQ(faked.client.dc_getApplications(&buffer, "HOSTMON", wait), 0);
  EXPECT_EQ(faked.client.dc_provideAction(1, "", "", "", "", 1, nullptr), 4);
  EXPECT_EQ(faked.transport.written.size(), 1u);
}

TEST(WithoutABlockForTheAnswer, TheCallerSeesSuccessWithoutABuffer) {
  const ScriptedDch dch(always(answerOf("hello")));
  for (const Query& query : queries) {
    expectTrace(query.name, [&] {
      ZORA_Long length = 4711;
      char before[] = "before";
      char* buffer = before;
      const WithoutBlocks without;
      EXPECT_EQ(query.call(&length, &buffer, "HOSTMON", wait), 0);
      EXPECT_EQ(length, 5);
      EXPECT_EQ(buffer, nullptr);
      return Lines{entryLine(), detailLine("buffer[5][(null)]\n"), exitLine(0)};
    });
  }
}

TEST(WithoutAClient, TheQueryFailsAndSendsNothing) {
  const ScriptedDch dch(always(answerOf("hello")));
  for (const Query& query : queries) {
    expectTrace(query.name, [&] {
      ZORA_Long length = 4711;
      char before[] = "before";
      char* buffer = before;
      const NoMemory failing;
      EXPECT_EQ(query.call(&length, &buffer, "HOSTMON", wait), 1);
      EXPECT_EQ(length, 0);
      EXPECT_EQ(buffer, nullptr);
      return Lines{entryLine(), errorLine("Error: allocating DCHclient.\n"), exitLine(1)};
    });
  }
  EXPECT_THAT(dch.requests(), IsEmpty());
}

}  // namespace
