#include "zordchcl/debug.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zora/zora.h"

namespace {

constexpr char variable[] = "ZORA_VERBOSE";

// What a process with this setting (null: none) answers.
int inProcessWith(const char* setting, int (*question)()) {
  return runInChild([&] {
           if (setting != nullptr)
             setenv(variable, setting, 1);
           else
             unsetenv(variable);
           return question();
         })
      .exitStatus;
}

TEST(Debug, IsOffWithoutASetting) {
  EXPECT_EQ(inProcessWith(nullptr, VX_Debug_Initialize), 'N');
  EXPECT_EQ(inProcessWith(nullptr, VX_Debug), 0);
}

TEST(Debug, GoesByTheFirstCharacter) {
  EXPECT_EQ(inProcessWith("Yes", VX_Debug_Initialize), 'Y');
  EXPECT_EQ(inProcessWith("Yes", VX_Debug), 1);
  EXPECT_EQ(inProcessWith("Y", VX_Debug), 1);
  EXPECT_EQ(inProcessWith("Debug", VX_Debug_Initialize), 'D');
  EXPECT_EQ(inProcessWith("Debug", VX_Debug), 2);
  EXPECT_EQ(inProcessWith("D", VX_Debug), 2);
  EXPECT_EQ(inProcessWith("No", VX_Debug), 0);
  EXPECT_EQ(inProcessWith(" Y", VX_Debug), 0);
}

TEST(Debug, TellsUpperFromLowerCase) {
  EXPECT_EQ(inProcessWith("yes", VX_Debug_Initialize), 'y');
  EXPECT_EQ(inProcessWith("yes", VX_Debug), 0);
  EXPECT_EQ(inProcessWith("debug", VX_Debug), 0);
}

TEST(Debug, IsOffWithAnEmptySetting) {
  EXPECT_EQ(inProcessWith("", VX_Debug_Initialize), 0);
  EXPECT_EQ(inProcessWith("", VX_Debug), 0);
}

TEST(Debug, IsReadOncePerProcess) {
  setenv(variable, "Yes", 1);
  EXPECT_EQ(VX_Debug(), 1);
  setenv(variable, "Debug", 1);
  EXPECT_EQ(VX_Debug(), 1);
  EXPECT_EQ(VX_Debug_Initialize(), 'Y');
  EXPECT_EQ(VX_Debug(), 1);
}

TEST(Debug, TracesItsFirstCallOnly) {
  setenv(variable, "Yes", 1);
  const TraceCapture trace;
  VX_Debug();
  VX_Debug();
  EXPECT_EQ(trace.texts(), (std::vector<std::string>{"<<Entry>>\n", "<<Exit: 89>>\n"}));
  for (const CapturedRecord& record : trace.records()) {
    EXPECT_EQ(record.function, "VX_Debug_Initialize");
    EXPECT_EQ(record.unit, "zordchcl");
    EXPECT_EQ(record.component, "ZORDC410");
  }
}

TEST(Debug, InitializeTracesItsEventsOnly) {
  unsetenv(variable);
  expectTrace("VX_Debug_Initialize", [] {
    VX_Debug_Initialize();
    return std::vector{entryLine(), exitLine('N')};
  });
}

TEST(Debug, IsTheSameForThreadsThatAskAtOnce) {
  setenv(variable, "Debug", 1);
  std::vector<int> levels(8);
  std::vector<std::thread> threads;
  threads.reserve(levels.size());
  for (int& level : levels) threads.emplace_back([&level] { level = VX_Debug(); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(levels, std::vector<int>(levels.size(), 2));
}

}  // namespace
