// The request scope of the exported functions without memory, and with a client whose address went
// bad.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "suite/text.h"
#include "tests/support/failing_calls.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/DCHclient.h"
#include "zordchcl/test_client.h"

namespace {

// What ZOR0_IsValidPointer was asked about, and what it is to answer.
std::atomic<bool> pointersAreValid{true};
std::atomic<int> timesAsked{0};
std::atomic<const void*> askedAbout{nullptr};

}  // namespace

extern "C" int __wrap__Z19ZOR0_IsValidPointerPKv(const void* pointer);
extern "C" int __real__Z19ZOR0_IsValidPointerPKv(const void* pointer);
extern "C" int __wrap__Z19ZOR0_IsValidPointerPKv(const void* pointer) {
  timesAsked += 1;
  askedAbout = pointer;
  return pointersAreValid ? __real__Z19ZOR0_IsValidPointerPKv(pointer) : 0;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// One call of an exported function. The row is never built here.
struct Arguments {
  ZORA_Long status = untouched;
  ZORA_Long handle = untouched;
  ZORA_Long size = untouched;
  char* row = nullptr;
};

struct Function {
  const char* name;
  int (*call)(Arguments&);
};

const Function checkedFunctions[] = {
    {"dp_formatData",
     [](Arguments& a) {
       return dp_formatData(&a.status, &a.row, &a.size, "load1", "0.25", 4, 'D');
     }},
    {"dp_data", [](Arguments& a) { return dp_data(&a.status, 815, 17, &a.row); }},
    {"dp_actionData", [](Arguments& a) { return dp_actionData(&a.status, 815, 17, &a.row, 3, 0); }},
};

const Function plainFunctions[] = {
    {"dp_register",
     [](Arguments& a) { return dp_register(&a.status, "appl:A,KEY;group:g;attr:a,D,1;"); }},
    {"dp_online", [](Arguments& a) { return dp_online(&a.status, &a.handle, "A", "g", "s"); }},
    {"dp_offline", [](Arguments& a) { return dp_offline(&a.status, 815); }},
    {"dp_unregister", [](Arguments& a) { return dp_unregister(&a.status, "A"); }},
    {"dp_cancel", [](Arguments& a) { return dp_cancel(&a.status, 815); }},
};

// ---- No memory -------------------------------------------------------------------------------

void expectNoClient(const Function& function) {
  char row[100] = "a caller's row";
  Arguments arguments;
  arguments.row = row;
  const TraceCapture trace("0xff");
  int result = 99;
  {
    const NoMemory noMemory;
    result = function.call(arguments);
  }
  EXPECT_EQ(NoMemory::lastRefusedBytes(), sizeof(DCHclient));
  EXPECT_EQ(result, 1) << function.name;
  EXPECT_EQ(arguments.status, untouched) << function.name;
  EXPECT_EQ(arguments.handle, untouched) << function.name;
  EXPECT_EQ(arguments.size, untouched) << function.name;
  EXPECT_EQ(arguments.row, row) << function.name;
  EXPECT_STREQ(row, "a caller's row") << function.name;
  EXPECT_THAT(trace.texts(), ElementsAre("<<Entry>>\n", "<<Exit: 1>>\n")) << function.name;
}

TEST(WithoutMemory, EveryProviderFunctionFailsAndLeavesItsArgumentsAlone) {
  for (const Function& function : checkedFunctions) expectNoClient(function);
  for (const Function& function : plainFunctions) expectNoClient(function);
}

TEST(WithoutMemory, ShutdownDoesNothing) {
  const TraceCapture trace("0xff");
  {
    const NoMemory noMemory;
    DCH_shutdown(0);
  }
  EXPECT_EQ(NoMemory::lastRefusedBytes(), sizeof(DCHclient));
  EXPECT_THAT(trace.texts(), IsEmpty());
}

TEST(WithoutMemory, ASubscriptionGivesNoHandle) {
  DCH_api_init();
  expectTrace("dc_waitOnDataInitialize", [] {
    const NoMemory noMemory;
    EXPECT_EQ(dc_waitOnDataInitialize("HOSTMON", "load"), nullptr);
    EXPECT_EQ(NoMemory::lastRefusedBytes(), sizeof(DCHclient));
    return Lines{entryLine()};
  });
}

// ---- A client whose address is not valid -----------------------------------------------------

class InvalidPointers {
 public:
  InvalidPointers() { pointersAreValid = false; }
  ~InvalidPointers() { pointersAreValid = true; }
  InvalidPointers(const InvalidPointers&) = delete;
  InvalidPointers& operator=(const InvalidPointers&) = delete;
};

char* newRow() {
  Arguments arguments;
  EXPECT_EQ(checkedFunctions[0].call(arguments), 0);
  return arguments.row;
}

// Frees the client that a call left alone. It would be a double deletion, had it not been.
void deleteAbandonedClient() {
  EXPECT_EQ(static_cast<const DCHclient*>(askedAbout.load())->_clientError, 0);
  delete static_cast<const DCHclient*>(askedAbout.load());
}

TEST(InvalidClient, IsReportedAndLeftAlone) {
  const ScriptedDch dch(always(statusAnswer(0)));
  for (const Function& function : checkedFunctions) {
    expectTrace(function.name, [&] {
      Arguments arguments;
      if (function.name != std::string("dp_formatData")) arguments.row = newRow();
      TraceCapture::forget();
      {
        const InvalidPointers invalid;
        EXPECT_EQ(function.call(arguments), 0) << "the request itself went through";
      }
      EXPECT_EQ(arguments.status, 0);
      deleteAbandonedClient();
      delete[] arguments.row;
      return Lines{entryLine(), errorLine("Error: client object @{address} is no longer valid"),
                   exitLine(0)};
    });
  }
}

TEST(InvalidClient, IsAskedForByTheThreeFunctionsAlone) {
  const ScriptedDch dch(always(onlineAnswer(0, 1)));
  for (const Function& function : plainFunctions) {
    Arguments arguments;
    function.call(arguments);
    EXPECT_EQ(timesAsked, 0) << function.name;
  }
  char* row = newRow();
  EXPECT_EQ(timesAsked, 1);
  Arguments arguments;
  arguments.row = row;
  checkedFunctions[1].call(arguments);
  EXPECT_EQ(timesAsked, 2);
}

}  // namespace
