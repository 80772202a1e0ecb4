#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/trace_capture.h"
#include "zora/zora.h"

namespace {

constexpr char variable[] = "ZORA_DCH_IPCTYPE";

// The type that a process answers with this setting, and with `later` put in its place after the
// first answer.
struct Answers {
  int first;
  int afterChange;
};

Answers answersFor(const char* setting, const char* later) {
  if (setting != nullptr)
    setenv(variable, setting, 1);
  else
    unsetenv(variable);
  const int first = ZORA_GetIPCtype();
  setenv(variable, later, 1);
  return {first, ZORA_GetIPCtype()};
}

TEST(IpcType, IsSocketsWithoutASetting) {
  const Answers answers = answersFor(nullptr, "2");
  EXPECT_EQ(answers.first, IPC_TYPE_SOCKET);
  EXPECT_EQ(answers.afterChange, IPC_TYPE_SOCKET);
}

TEST(IpcType, IsLocalProcedureCallsWhenSetToTwo) {
  const Answers answers = answersFor("2", "1");
  EXPECT_EQ(answers.first, IPC_TYPE_LPC);
  EXPECT_EQ(answers.afterChange, IPC_TYPE_LPC);
}

TEST(IpcType, IsPassedThroughAndKeptWhenItIsNoTransport) {
  const Answers answers = answersFor("7", "2");
  EXPECT_EQ(answers.first, 7);
  EXPECT_EQ(answers.afterChange, 7);
}

TEST(IpcType, IsKeptWhenItIsNegative) {
  const Answers answers = answersFor("-1", "2");
  EXPECT_EQ(answers.first, -1);
  EXPECT_EQ(answers.afterChange, -1);
}

TEST(IpcType, IsReadAgainWhileItIsNotANumber) {
  setenv(variable, "abc", 1);
  EXPECT_EQ(ZORA_GetIPCtype(), 0);
  EXPECT_EQ(ZORA_GetIPCtype(), 0);
  const Answers answers = answersFor("abc", "2");
  EXPECT_EQ(answers.first, 0);
  EXPECT_EQ(answers.afterChange, 2);
}

TEST(IpcType, IsReadAgainWhileItIsZero) {
  const Answers answers = answersFor("0", "7");
  EXPECT_EQ(answers.first, 0);
  EXPECT_EQ(answers.afterChange, 7);
}

TEST(IpcType, IsReadToTheFirstCharacterThatIsNoDigit) {
  const auto typeFor = [](const char* setting) {
    return runInChild([] { return ZORA_GetIPCtype() & 0xFF; }, {{variable, setting}}).exitStatus;
  };
  EXPECT_EQ(typeFor("2x"), 2);
  EXPECT_EQ(typeFor(" \t12"), 12);
  EXPECT_EQ(typeFor("+3"), 3);
  EXPECT_EQ(typeFor("-1"), 0xFF);
  EXPECT_EQ(typeFor(""), 0);
}

TEST(IpcType, IsNotTraced) {
  const TraceCapture trace;
  ZORA_GetIPCtype();
  ZORA_GetIPCtype();
  EXPECT_TRUE(trace.texts().empty());
}

TEST(IpcType, IsTheSameForThreadsThatAskAtOnce) {
  setenv(variable, "2", 1);
  std::vector<int> types(8);
  std::vector<std::thread> threads;
  threads.reserve(types.size());
  for (int& type : types) threads.emplace_back([&type] { type = ZORA_GetIPCtype(); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(types, std::vector<int>(types.size(), 2));
}

}  // namespace
