#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/failing_calls.h"
#include "tests/support/process.h"
#include "tests/support/temporary_files.h"
#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zora/zora.h"

namespace {

namespace fs = std::filesystem;

constexpr int ranInChild = 77;   // status of a child that got back from the call
constexpr int startFailed = 78;  // status of a process that has no child
constexpr char missing[] = "no-such-data-provider";

// Two empty directories, the process's current one and the only one of its PATH.
class Directories {
 public:
  Directories() {
    fs::create_directory(current());
    fs::create_directory(onPath());
    fs::current_path(current());
    setenv("PATH", onPath().c_str(), 1);
  }

  fs::path current() const { return fs::path(_root.path()) / "current"; }
  fs::path onPath() const { return fs::path(_root.path()) / "path"; }

 private:
  const TemporaryFolder _root;
};

// A program that ends with `status`.
void writeProgram(const fs::path& path, int status) {
  std::ofstream(path) << "#!/bin/sh\nexit " << status << "\n";
  fs::permissions(path, fs::perms::owner_all);
}

int statusOf(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The exit status of the child in which `program` was started.
int startedStatus(const std::string& program) {
  const int child = ZORA_StartDPprocess(program.c_str());
  if (child == 0) _exit(ranInChild);
  return child > 0 ? statusOf(child) : startFailed;
}

TEST(StartDPprocess, RunsAProgramOfTheCurrentDirectory) {
  const Directories directories;
  writeProgram(directories.current() / "provider", 3);
  EXPECT_EQ(startedStatus("provider"), 3);
}

TEST(StartDPprocess, RunsAProgramOnThePath) {
  const Directories directories;
  writeProgram(directories.onPath() / "provider", 4);
  EXPECT_EQ(startedStatus("provider"), 4);
}

TEST(StartDPprocess, PrefersTheCurrentDirectory) {
  const Directories directories;
  writeProgram(directories.current() / "provider", 3);
  writeProgram(directories.onPath() / "provider", 4);
  EXPECT_EQ(startedStatus("provider"), 3);
}

TEST(StartDPprocess, GoesOnToThePathWhenTheCurrentDirectoryHasNoProgram) {
  const Directories directories;
  std::ofstream(directories.current() / "provider") << "not executable\n";
  writeProgram(directories.onPath() / "provider", 4);
  EXPECT_EQ(startedStatus("provider"), 4);
}

// A shell that reads its commands from standard input tells its name and its arguments.
std::string argumentsSeenBy(const fs::path& link) {
  fs::create_symlink("/bin/sh", link);
  const fs::path commands = link.parent_path() / "commands";
  std::ofstream(commands) << "echo \"$0 $#\"\n";
  return runInChild([&] {
           if (std::freopen(commands.c_str(), "r", stdin) == nullptr) return startFailed;
           return startedStatus("provider");
         })
      .standardOutput;
}

TEST(StartDPprocess, PassesTheNameAsTheOnlyArgument) {
  const Directories directories;
  EXPECT_EQ(argumentsSeenBy(directories.current() / "provider"), "provider 0\n");
}

TEST(StartDPprocess, PassesTheNameAsTheOnlyArgumentOnThePathToo) {
  const Directories directories;
  EXPECT_EQ(argumentsSeenBy(directories.onPath() / "provider"), "provider 0\n");
}

TEST(StartDPprocess, TakesTheLongestNameWhole) {
  const Directories directories;
  const std::string longest(253, 'p');
  writeProgram(directories.current() / longest, 3);
  EXPECT_EQ(startedStatus(longest), 3);
}

TEST(StartDPprocess, NeverCutsANameThatIsTooLong) {
  const Directories directories;
  writeProgram(directories.current() / std::string(253, 'p'), 3);
  EXPECT_EQ(startedStatus(std::string(254, 'p')), ranInChild);
  EXPECT_EQ(startedStatus(std::string(5000, 'p')), ranInChild);
}

TEST(StartDPprocess, AnswersTheChildAndSaysSo) {
  const Directories directories;
  writeProgram(directories.current() / "provider", 0);
  expectTrace("ZORA_StartDPprocess", [] {
    const int child = ZORA_StartDPprocess("provider");
    if (child == 0) _exit(ranInChild);
    EXPECT_GT(child, 0);
    EXPECT_EQ(statusOf(child), 0);
    return std::vector{entryLine(), flowLine(textOf("Parent side with childPID is %d\n", child)),
                       detailLine("provider started successfully.\n"), exitLine(child)};
  });
}

TEST(StartDPprocess, TellsTheParentOfSuccessEvenForAMissingProgram) {
  const Directories directories;
  expectTrace("ZORA_StartDPprocess", [] {
    const int child = ZORA_StartDPprocess(missing);
    if (child == 0) _exit(ranInChild);
    EXPECT_EQ(statusOf(child), ranInChild);
    return std::vector{entryLine(), flowLine(textOf("Parent side with childPID is %d\n", child)),
                       detailLine(textOf("%s started successfully.\n", missing)), exitLine(child)};
  });
}

// What the child of a missing program traces under the classes of `rules`. Its parent's records up
// to the fork are among them.
std::vector<std::string> childsTexts(const char* rules) {
  const std::string separator = "|";
  const ProcessResult result = runInChild([&] {
    const TraceCapture trace(rules);
    const int child = ZORA_StartDPprocess(missing);
    if (child != 0) return statusOf(child);
    for (const std::string& text : trace.textsOf("ZORA_StartDPprocess"))
      std::fputs((text + separator).c_str(), stdout);
    std::fflush(stdout);
    _exit(ranInChild);
  });
  EXPECT_EQ(result.exitStatus, ranInChild);
  std::vector<std::string> texts;
  for (std::size_t start = 0; start < result.standardOutput.size();) {
    const std::size_t end = result.standardOutput.find(separator, start);
    texts.push_back(result.standardOutput.substr(start, end - start));
    start = end + separator.size();
  }
  return texts;
}

TEST(StartDPprocess, ReturnsZeroInTheChildOfAMissingProgram) {
  const Directories directories;
  const std::string error = textOf("Error: EXEC %s failed: errno=%d\n", missing, ENOENT);
  using Texts = std::vector<std::string>;
  EXPECT_EQ(childsTexts("0xff"), (Texts{"<<Entry>>\n", error, "<<Exit: 0>>\n"}));
  EXPECT_EQ(childsTexts("0x40"), (Texts{"<<Entry>>\n", "<<Exit: 0>>\n"}));
  EXPECT_EQ(childsTexts("0x80"), Texts{error});
  EXPECT_EQ(childsTexts("0x3f"), Texts{});
}

TEST(StartDPprocess, ReportsAFailedFork) {
  expectTrace("ZORA_StartDPprocess", [] {
    const FailingCall failing({SystemCall::fork}, EAGAIN);
    EXPECT_EQ(ZORA_StartDPprocess("provider"), -1);
    return std::vector{entryLine(), errorLine(textOf("Error: fork failed: errno=%d\n", EAGAIN)),
                       exitLine(-1)};
  });
}

}  // namespace
