// Tracing without memory. The allocation functions of this program can be made to fail.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>

#include "suite/trc1.h"

namespace {

bool hasMemory = true;

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  void* block = hasMemory ? std::malloc(size) : nullptr;
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
[[gnu::noinline]] void* operator new[](std::size_t size) {
  return operator new(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return hasMemory ? std::malloc(size) : nullptr;
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
  std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
[[gnu::noinline]] void operator delete[](void* block) noexcept {
  std::free(block);
}
[[gnu::noinline]] void operator delete[](void* block, std::size_t) noexcept {
  std::free(block);
}

namespace {

constinit TRC1_Unit unit{"zordsock", "ZORD410"};
constinit TRC1_Block block{"function", 8, 1, &unit, {}, {}};

std::string lastText;

TEST(TraceWithoutMemory, CutsALongText) {
  lastText.reserve(100000);
  TRC1_SetSink(
      [](void*, const TRC1_Record& record) { lastText.assign(record.text, record.textLength); },
      nullptr);
  const std::string text(5000, 'x');
  hasMemory = false;
  TRC1_Printf(&block, 1, "short");
  const bool isShortWhole = lastText == "short";
  TRC1_Printf(&block, 1, "%s", text.c_str());
  hasMemory = true;
  EXPECT_TRUE(isShortWhole);
  EXPECT_GT(lastText.size(), 500u);
  EXPECT_LT(lastText.size(), 1024u);
  EXPECT_EQ(lastText, std::string(lastText.size(), 'x'));
  TRC1_Printf(&block, 1, "%s", text.c_str());
  EXPECT_EQ(lastText, text);
}

TEST(TraceWithoutMemory, KeepsTheRulesAndSaysSo) {
  TRC1_Configure("0x10");
  testing::internal::CaptureStderr();
  hasMemory = false;
  TRC1_Configure("0x40");
  const bool isStillOn = TRC1_Scope(&block).on(0x10);
  hasMemory = true;
  EXPECT_TRUE(isStillOn);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "ZORA_TRACE: no memory for the rules\n");
}

}  // namespace
