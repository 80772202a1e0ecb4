// run_fixture.h: zordp run with files and commands of a test's own.
#ifndef TOOLS_TESTKIT_RUN_FIXTURE_H
#define TOOLS_TESTKIT_RUN_FIXTURE_H

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/temporary_files.h"
#include "tests/support/wait_until.h"
#include "tools/testkit/process_state.h"
#include "tools/testkit/tools_fixture.h"

namespace tools {

constexpr std::chrono::seconds runPatience{60};

inline constexpr char runRegistration[] =
    "registration = 'appl:WEATHER,WTH; group:sky; attr:clouds,G,4; attr:note,T,20; group:wind; "
    "attr:speed,G,4;'\n";

// A table [[rows]]; `keys` are further lines.
inline std::string rowsTable(const std::string& group, const std::string& command,
                             const std::string& keys = "") {
  return "[[rows]]\ngroup = '" + group + "'\nsource = 'roof'\ncommand = '''" + command + "'''\n" +
         keys + "\n";
}
// That the command of a table runs once.
inline constexpr char once[] = "every = 86400\n";

// zordp run, with a file of these tables.
class RunningZordp {
 public:
  RunningZordp(const std::string& tables, const Environment& environment,
               const Arguments& more = {})
      : _file(runRegistration + tables), _process(ZORDP_PATH, arguments(more), environment) {}

  Process* operator->() { return &_process; }
  void waitUntilOnline() { _process.waitForError(" is on line, sources: "); }
  ProcessResult stop(int signal = SIGTERM) {
    _process.signal(signal);
    return _process.finish();
  }

 private:
  Arguments arguments(const Arguments& more) const {
    Arguments all{"run", _file.path()};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }

  const TemporaryFile _file;
  Process _process;
};

// What a command reads from a file, as the test writes it.
class CommandInput {
 public:
  CommandInput() : _path(_folder.path() + "/input") {
    if (mkfifo(_path.c_str(), S_IRUSR | S_IWUSR) != 0) throw std::runtime_error("no pipe");
    // Open for both, so that neither side waits for the other one.
    _descriptor = open(_path.c_str(), O_RDWR | O_CLOEXEC);
  }
  ~CommandInput() { close(_descriptor); }
  CommandInput(const CommandInput&) = delete;
  CommandInput& operator=(const CommandInput&) = delete;

  const std::string& path() const { return _path; }
  void write(const std::string& text) const {
    if (::write(_descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
      throw std::runtime_error("the command takes no input");
  }

 private:
  const TemporaryFolder _folder;
  const std::string _path;
  int _descriptor;
};

// A file into which commands write a line each time they run.
class Diary {
 public:
  const std::string& path() const { return _file.path(); }
  std::vector<std::string> lines() const {
    std::istringstream content(_file.content());
    std::vector<std::string> lines;
    for (std::string line; std::getline(content, line);)
      if (!content.eof()) lines.push_back(line);
    return lines;
  }
  bool waitForLines(std::size_t count) const {
    return waitUntil([&] { return lines().size() >= count; }, runPatience);
  }

 private:
  const TemporaryFile _file{""};
};

// The values of each row that zordc printed as a line of JSON, such as {"clouds":1}.
inline std::vector<std::string> valuesIn(const std::string& lines) {
  std::istringstream all(lines);
  std::vector<std::string> values;
  for (std::string line; std::getline(all, line);)
    values.push_back(nlohmann::json::parse(line).at("values").dump());
  return values;
}

}  // namespace tools

#endif  // TOOLS_TESTKIT_RUN_FIXTURE_H
