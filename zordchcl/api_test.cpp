// The exported functions of the library and of the providers: their scope and the locks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>
#include <vector>

#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/locks.h"
#include "zordchcl/test_api.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// Answers as a DCH does that gives handle 815 to everybody.
std::vector<std::string> answerWell(const std::string& request) {
  const bool isOnline = request.substr(10, 2) == bytesOf("1015");
  return {isOnline ? onlineAnswer(0, 815) : statusAnswer(0)};
}

// ---- A provider's life -----------------------------------------------------------------------

TEST(ProviderApi, ALifeFromRegistrationToUnregistration) {
  const ScriptedDch dch(answerWell);
  DCH_api_init();
  ZORA_Long status = untouched;
  ZORA_Long handle = untouched;
  EXPECT_EQ(dp_register(&status, registration), 0);
  EXPECT_EQ(dp_online(&status, &handle, "HOSTMON", "load", "host1"), 0);
  EXPECT_EQ(handle, 815);
  for (const short code : {short{17}, short{18}}) {
    char* row = newRow();
    EXPECT_EQ(dp_data(&status, handle, code, &row), 0);
    EXPECT_EQ(row, nullptr);
  }
  char* row = newRow();
  EXPECT_EQ(dp_actionData(&status, handle, 19, &row, 3, 0), 0);
  EXPECT_EQ(row, nullptr);
  EXPECT_EQ(dp_offline(&status, handle), 0);
  EXPECT_EQ(dp_unregister(&status, "HOSTMON"), 0);
  EXPECT_EQ(status, 0);
  DCH_api_destroy();

  std::vector<std::string> codes;
  for (const std::string& request : dch.requests()) {
    codes.push_back(request.substr(10, 2));
    EXPECT_EQ(ZOR0_MessageLength(request.data()), request.size());
  }
  EXPECT_THAT(codes, ElementsAre(bytesOf("1010"), bytesOf("1015"), bytesOf("1030"), bytesOf("1030"),
                                 bytesOf("1030"), bytesOf("1025"), bytesOf("1020")));
  EXPECT_EQ(dch.requests()[4].substr(18, 4), bytesOf("0000032f"));
  EXPECT_EQ(dch.requests()[4].substr(28, 2), bytesOf("0013"));
}

TEST(ProviderApi, NeedsNoLocks) {
  const ScriptedDch dch(answerWell);
  ZORA_Long status = untouched;
  EXPECT_EQ(dp_unregister(&status, "HOSTMON"), 0);
  EXPECT_EQ(status, 0);
}

TEST(ProviderApi, PassesTheDchsStatusOn) {
  const ScriptedDch dch(always(onlineAnswer(102, 9)));
  ZORA_Long status = untouched;
  ZORA_Long handle = untouched;
  EXPECT_EQ(dp_online(&status, &handle, "HOSTMON", "load", "host1"), 0);
  EXPECT_EQ(status, 102);
  EXPECT_EQ(handle, 9);
}

TEST(ProviderApi, RequestsOfManyThreadsDoNotMix) {
  // Each thread asks for a handle of its own and must get that one.
  const ScriptedDch dch([](const std::string& request) {
    const auto source = request.find("source");
    return std::vector<std::string>{onlineAnswer(0, request.at(source + 6) - '0')};
  });
  std::vector<std::thread> threads;
  std::vector<int> results(8, 99);
  for (std::size_t i = 0; i < results.size(); ++i)
    threads.emplace_back([&results, i] {
      const std::string source = "source" + std::to_string(i);
      for (int round = 0; round < 50; ++round) {
        ZORA_Long status = untouched;
        ZORA_Long handle = untouched;
        results[i] = dp_online(&status, &handle, "HOSTMON", "load", source.c_str());
        if (results[i] != 0 || status != 0 || handle != static_cast<ZORA_Long>(i)) return;
      }
      results[i] = 0;
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(results, testing::Each(0));
  EXPECT_THAT(dch.requests(), SizeIs(8 * 50));
}

// ---- The scope -------------------------------------------------------------------------------

struct Framed {
  const char* function;
  std::function<int()> call;
};

const Framed framed[] = {
    {"dp_register",
     [] {
       ZORA_Long status = untouched;
       return dp_register(&status, registration);
     }},
    {"dp_online",
     [] {
       ZORA_Long status = untouched;
       ZORA_Long handle = untouched;
       return dp_online(&status, &handle, "HOSTMON", "load", "host1");
     }},
    {"dp_offline",
     [] {
       ZORA_Long status = untouched;
       return dp_offline(&status, 815);
     }},
    {"dp_unregister",
     [] {
       ZORA_Long status = untouched;
       return dp_unregister(&status, "HOSTMON");
     }},
    {"dp_cancel",
     [] {
       ZORA_Long status = untouched;
       return dp_cancel(&status, 815);
     }},
    {"dp_data",
     [] {
       ZORA_Long status = untouched;
       char* row = newRow();
       return dp_data(&status, 815, 17, &row);
     }},
};

TEST(RequestScope, TracesEntryAndExitWithTheResult) {
  const ScriptedDch dch(answerWell);
  for (const Framed& one : framed) {
    expectTrace(one.function, [&] {
      EXPECT_EQ(one.call(), 0) << one.function;
      return Lines{entryLine(), exitLine(0)};
    });
  }
  expectTrace("dp_formatData", [] {
    delete[] newRow();
    return Lines{entryLine(), exitLine(0)};
  });
}

TEST(RequestScope, TracesAFailureAsTheResult) {
  const ScriptedDch dch(always(bytesOf("00000000")));  // no read succeeds
  for (const Framed& one : framed) {
    if (one.function == std::string("dp_cancel")) continue;  // reads nothing
    expectTrace(one.function, [&] {
      EXPECT_EQ(one.call(), 1) << one.function;
      return Lines{entryLine(), exitLine(1)};
    });
  }
}

TEST(RequestScope, MakesAClientForEachCallAndFreesIt) {
  const ScriptedDch dch(answerWell);
  for (const Framed& one : framed) {
    const TraceCapture trace("*/DCHclient::*DCHclient=0x40");
    one.call();
    const std::size_t calls = one.function == std::string("dp_data") ? 2 : 1;
    EXPECT_THAT(trace.textsOf("DCHclient::DCHclient"), SizeIs(2 * calls)) << one.function;
    EXPECT_THAT(trace.textsOf("DCHclient::~DCHclient"), SizeIs(2 * calls)) << one.function;
  }
}

TEST(RequestScope, ActionDataTellsOfTheDeletion) {
  const ScriptedDch dch(answerWell);
  expectTrace("dp_actionData", [] {
    ZORA_Long status = untouched;
    char* row = newRow();
    EXPECT_EQ(dp_actionData(&status, 815, 17, &row, 0, 0), 0);
    return Lines{entryLine(), storageLine("Deleting DCHclient @{address}\n"), exitLine(0)};
  });
}

TEST(RequestScope, CancelSendsNothing) {
  const ScriptedDch dch(answerWell);
  ZORA_Long status = untouched;
  EXPECT_EQ(dp_cancel(&status, 815), 0);
  EXPECT_EQ(status, 0);
  EXPECT_THAT(dch.requests(), IsEmpty());
}

TEST(RequestScope, ShutdownTracesNothingOfItsOwn) {
  const ScriptedDch dch(answerWell);
  const TraceCapture trace("0xff");
  DCH_shutdown(3);
  EXPECT_THAT(trace.textsOf("DCH_shutdown"), IsEmpty());
  EXPECT_THAT(trace.textsOf("DCHclient::shutdown"),
              ElementsAre("<<Entry>>\n", "Error: FINISH ME UP!", "<<Exit>>\n"));
  EXPECT_THAT(dch.requests(), IsEmpty());
}

// ---- The locks -------------------------------------------------------------------------------

TEST(Locks, AreInitializedByTheFirstInitAlone) {
  const TraceCapture trace("0xff");
  DCH_api_init();
  EXPECT_THAT(trace.textsOf("DCH_api_init"),
              ElementsAre("<<Entry>>\n", "Initializing DCHclient locks.\n", "<<Exit>>\n"));
  ASSERT_EQ(pthread_mutex_lock(&zordchcl::_dc_waitOnDataLock), 0);
  TraceCapture::forget();
  DCH_api_init();
  EXPECT_THAT(trace.textsOf("DCH_api_init"), ElementsAre("<<Entry>>\n", "<<Exit>>\n"));
  EXPECT_EQ(pthread_mutex_unlock(&zordchcl::_dc_waitOnDataLock), 0)
      << "a second initialization would have unlocked it";
}

TEST(Locks, AreToldOfUnderTheStorageClass) {
  const TraceCapture trace("0x02");
  DCH_api_init();
  DCH_api_destroy();
  EXPECT_THAT(trace.texts(),
              ElementsAre("Initializing DCHclient locks.\n", "Destroying DCHclient locks.\n"));
}

TEST(Locks, AreToldOfUnderNoOtherClass) {
  const TraceCapture trace("0xbd");
  DCH_api_init();
  DCH_api_destroy();
  EXPECT_THAT(trace.texts(), IsEmpty());
}

TEST(Locks, DestroyTracesEntryAndExit) {
  expectTrace("DCH_api_destroy", [] {
    DCH_api_destroy();
    return Lines{entryLine(), storageLine("Destroying DCHclient locks.\n"), exitLine()};
  });
}

}  // namespace
