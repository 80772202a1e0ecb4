// What a process that traces for long leaves in its file, and in itself.
#include <filesystem>

#include "suite/trc1_test.h"

namespace {

long openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(LongTrace, KeepsOneDescriptor) {
  const TraceFile file;
  const long before = openDescriptors();
  for (int line = 1; line <= 10; ++line) TRC1_Printf(&dpOnline, line, "x\n");
  EXPECT_EQ(openDescriptors(), before + 1);
}

TEST(LongTrace, GoesOnInItsFileWhenThatIsRenamed) {
  const TraceFile file;
  const std::string path = getenv("ZORA_TRACE_FILE");
  const std::string renamed = path + ".1";
  TRC1_Printf(&dpOnline, 1, "before\n");
  ASSERT_EQ(rename(path.c_str(), renamed.c_str()), 0);
  TRC1_Printf(&dpOnline, 2, "after\n");
  std::ostringstream text;
  text << std::ifstream(renamed).rdbuf();
  EXPECT_THAT(text.str(), testing::EndsWith(" dp_online:2 after\n"));
  EXPECT_FALSE(std::filesystem::exists(path));
  unlink(renamed.c_str());
}

// The prefix has room for 511 characters. Where a function's name is longer than that leaves room
// for, the prefix is cut there, and the text follows.
TEST(TracePrefix, OfEveryLengthAroundTheLongestIsFollowedByTheText) {
  constexpr std::size_t longest = 511;
  const std::string time = "2026-01-31T23:59:59.123456Z ";
  const TraceFile file;
  for (std::size_t length = 400; length < 550; ++length) {
    const std::string name(length, 'f');
    TRC1_Block block{name.c_str(), name.size(), 1, &channel, {}, {}};
    TRC1_Printf(&block, 1, "text\n");
    const std::string line = file.content();
    ASSERT_EQ(truncate(getenv("ZORA_TRACE_FILE"), 0), 0);
    const std::string prefix =
        std::to_string(getpid()) + "." + std::to_string(gettid()) + " ZORDC410 " + name + ":1 ";
    ASSERT_GT(line.size(), time.size()) << length;
    ASSERT_EQ(line.substr(time.size()), prefix.substr(0, longest - time.size()) + "text\n")
        << length;
  }
}

}  // namespace
