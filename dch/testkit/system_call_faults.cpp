#include "dch/testkit/system_call_faults.h"

#include "tests/support/temporary_files.h"

namespace dch::testkit {

bool canTrace() {
  return Process("strace", {"-D", "-f", "-o", "/dev/null", "true"}).finish().exitStatus == 0;
}

Process::Arguments faultArguments(const std::string& call, const std::string& error, int number,
                                  int count, const std::string& log) {
  return {"-f",
          "-o",
          log,
          "-e",
          "trace=" + call,
          "-e",
          "inject=" + call + ":error=" + error + ":when=" + std::to_string(number) + ".." +
              std::to_string(number + count - 1)};
}

bool hasFailed(const std::string& log) {
  return contentOf(log).find("(INJECTED)") != std::string::npos;
}

}  // namespace dch::testkit
