// What a fresh process pays for the library: from its start over its first row to its end, against
// a process that does the same with system calls alone.
#include <cstdio>
#include <stdexcept>
#include <string>

#include "bench/echo_peer.h"
#include "bench/sides.h"

namespace {

std::chrono::nanoseconds runProgram(const char* path, int times) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < times; ++i) {
    Process program(path, {}, {}, Process::Output::inherited);
    if (program.finish().exitStatus != 0) throw std::runtime_error("a first request failed");
  }
  return std::chrono::steady_clock::now() - start;
}

// In KiB: the whole resident set and what of it is the process's own.
struct Memory {
  int resident = 0, own = 0;
};

Memory memoryOf(const std::string& path) {
  const ProcessResult report = Process(path, {"memory"}).finish();
  Memory memory;
  const int found = std::sscanf(report.standardOutput.c_str(), "VmRSS: %d kB RssAnon: %d kB",
                                &memory.resident, &memory.own);
  if (report.exitStatus != 0 || found != 2) throw std::runtime_error("a first request failed");
  return memory;
}

}  // namespace

int main(int argc, char** argv) {
  const EchoPeer echo;
  echo.becomeDch();
  constexpr int startsPerTurn = 5;
  const auto side = [](const char* name, const char* path) -> Side {
    return {name, startsPerTurn, [path](int times) { return runProgram(path, times); }};
  };
  Medians medians = runSides(
      argc, argv, {side("bare", FIRST_REQUEST_BARE_PATH), side("library", FIRST_REQUEST_PATH)});
  printFigure("first request of a process, library over bare, ms",
              (medians["library"] - medians["bare"]) / 1e6);
  const Memory bare = memoryOf(FIRST_REQUEST_BARE_PATH), library = memoryOf(FIRST_REQUEST_PATH);
  printFigure("memory of a client over bare, KiB", library.resident - bare.resident);
  printFigure("memory of a client over bare, its own, KiB", library.own - bare.own);
}
