// command_line.h: how a load is told how large it is, and how it ends.
#ifndef TESTS_LOAD_COMMAND_LINE_H
#define TESTS_LOAD_COMMAND_LINE_H

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <string>

namespace load {

// Each is followed by its number. Returns whether the command line has nothing else.
inline bool readNumbers(int argc, char** argv, const std::map<std::string, int*>& options) {
  for (int i = 1; i < argc; i += 2) {
    const auto option = options.find(argv[i]);
    if (option == options.end() || i + 1 == argc) return false;
    *option->second = std::atoi(argv[i + 1]);
  }
  return true;
}

// Says what came of the work, which returns whether all was right. Returns the exit status.
template <class Work>
int runToEnd(Work work) {
  try {
    const bool isRight = work();
    std::puts(isRight ? "all is well" : "not all is well");
    return isRight ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    std::printf("FAILED: %s\n", error.what());
    return EXIT_FAILURE;
  }
}

}  // namespace load

#endif  // TESTS_LOAD_COMMAND_LINE_H
