#include "tools/testkit/running_program.h"

#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

#include "tests/support/text_count.h"

namespace tools {
namespace {

constexpr std::chrono::seconds longestWait{50};

// A one-way connection: a pipe, or a terminal whose screen is read.
struct Channel {
  explicit Channel(bool isTerminal = false) {
    if (isTerminal ? openpty(&readEnd, &writeEnd, nullptr, nullptr, nullptr) != 0 : !openPipe())
      throw std::runtime_error("cannot open a pipe or a terminal");
    for (const int end : {readEnd, writeEnd}) fcntl(end, F_SETFD, FD_CLOEXEC);
  }
  bool openPipe() {
    int ends[2];
    if (pipe(ends) != 0) return false;
    readEnd = ends[0];
    writeEnd = ends[1];
    return true;
  }
  int readEnd;
  int writeEnd;
};

std::vector<char*> pointersTo(std::vector<std::string>* texts) {
  std::vector<char*> pointers;
  for (std::string& text : *texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> wholeEnvironment(const RunningProgram::Environment& changes) {
  std::vector<std::string> whole;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (changes.count(text.substr(0, text.find('='))) == 0) whole.push_back(text);
  }
  for (const auto& [name, value] : changes) whole.push_back(name + "=" + value);
  return whole;
}

}  // namespace

RunningProgram::RunningProgram(const std::string& path, const Arguments& arguments,
                               const Environment& environment, ErrorTo errorTo) {
  const Channel input;
  const Channel output;
  const Channel error(errorTo == ErrorTo::terminal);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.readEnd, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output.writeEnd, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, error.writeEnd, STDERR_FILENO);
  // A group of its own: what the program starts is ended with it.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  std::vector<std::string> words{path};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables = wholeEnvironment(environment);
  const int failed = posix_spawn(&_processId, path.c_str(), &actions, &attributes,
                                 pointersTo(&words).data(), pointersTo(&variables).data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  for (const int end : {input.readEnd, output.writeEnd, error.writeEnd}) close(end);
  _input = input.writeEnd;
  _outputReader =
      std::thread(&RunningProgram::collect, this, output.readEnd, &_result.standardOutput);
  _errorReader = std::thread(&RunningProgram::collect, this, error.readEnd, &_result.standardError);
  if (failed != 0) _processId = -1;
}

RunningProgram::~RunningProgram() {
  killAll();
  if (_outputReader.joinable()) finish();
}

void RunningProgram::write(const std::string& input) {
  if (::write(_input, input.data(), input.size()) != static_cast<ssize_t>(input.size()))
    throw std::runtime_error("the program takes no input");
}

void RunningProgram::closeInput() {
  if (_input >= 0) close(_input);
  _input = -1;
}

void RunningProgram::signal(int number) {
  kill(_processId, number);
}

ProgramResult RunningProgram::finish() {
  closeInput();
  {
    // It has ended when it has closed both of its outputs.
    std::unique_lock lock(_mutex);
    if (!_more.wait_for(lock, longestWait, [&] { return _openOutputs == 0; })) killAll();
  }
  _outputReader.join();
  _errorReader.join();
  int status = 0;
  if (_processId > 0 && waitpid(_processId, &status, 0) == _processId)
    _result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  _processId = -1;
  return _result;
}

void RunningProgram::killAll() {
  if (_processId > 0) kill(-_processId, SIGKILL);
}

void RunningProgram::collect(int descriptor, std::string* target) {
  char buffer[4096];
  ssize_t count = 0;
  // A terminal that its program has left gives an error instead of an end.
  while ((count = read(descriptor, buffer, sizeof buffer)) > 0) {
    const std::lock_guard lock(_mutex);
    target->append(buffer, static_cast<std::size_t>(count));
    _more.notify_all();
  }
  close(descriptor);
  const std::lock_guard lock(_mutex);
  --_openOutputs;
  _more.notify_all();
}

std::string RunningProgram::waitFor(const std::string* output, const std::string& text, int times) {
  std::unique_lock lock(_mutex);
  const auto isThere = [&] { return countOf(text, *output) >= times; };
  _more.wait_for(lock, longestWait, [&] { return isThere() || _openOutputs == 0; });
  if (isThere()) return *output;
  throw std::runtime_error("no '" + text + "' in what the program wrote:\n" +
                           _result.standardOutput + _result.standardError);
}

}  // namespace tools
