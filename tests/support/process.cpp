#include "tests/support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <utility>

#include "tests/support/text_count.h"

namespace {

// A one-way connection: a pipe, or a terminal whose screen is read. Not for other processes.
class Channel {
 public:
  explicit Channel(bool isTerminal = false) {
    if (isTerminal ? openpty(&_ends[0], &_ends[1], nullptr, nullptr, nullptr) : pipe(_ends))
      throw std::runtime_error("cannot open a pipe or a terminal");
    for (const int end : _ends) fcntl(end, F_SETFD, FD_CLOEXEC);
  }
  ~Channel() {
    for (const int end : _ends)
      if (end >= 0) close(end);
  }
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  int readEnd() const { return _ends[0]; }
  int writeEnd() const { return _ends[1]; }
  int takeReadEnd() { return std::exchange(_ends[0], -1); }
  int takeWriteEnd() { return std::exchange(_ends[1], -1); }

 private:
  int _ends[2];
};

std::vector<char*> pointersTo(std::vector<std::string>* texts) {
  std::vector<char*> pointers;
  for (std::string& text : *texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> wholeEnvironment(const Process::Environment& changes) {
  std::vector<std::string> whole;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (!changes.contains(text.substr(0, text.find('=')))) whole.push_back(text);
  }
  for (const auto& [name, value] : changes) whole.push_back(name + "=" + value);
  return whole;
}

// Appends what is there; whether more may come. A terminal that its program has left gives an error
// instead of an end.
bool readInto(std::string* text, int descriptor, std::mutex* mutex) {
  char buffer[4096];
  const ssize_t count = read(descriptor, buffer, sizeof buffer);
  if (count <= 0) return false;
  const std::lock_guard lock(*mutex);
  text->append(buffer, static_cast<std::size_t>(count));
  return true;
}

}  // namespace

Process::Process(const std::string& path, const Arguments& arguments,
                 const Environment& environment, Output output, void (*prepare)()) {
  std::vector<std::string> words{path};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables = wholeEnvironment(environment);
  const std::vector<char*> argumentPointers = pointersTo(&words);
  const std::vector<char*> variablePointers = pointersTo(&variables);
  // Other threads may hold any lock: the new process only calls the system.
  start(output, [&] {
    if (prepare != nullptr) prepare();
    execvpe(path.c_str(), argumentPointers.data(), variablePointers.data());
    _exit(notFound);
  });
}

Process::Process(const std::function<int()>& body, const Environment& environment, Output output) {
  std::fflush(nullptr);
  start(output, [&] {
    int status = EXIT_FAILURE;
    try {
      for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
      status = body();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "child process: %s\n", error.what());
    }
    std::fflush(nullptr);
    _exit(status);
  });
}

void Process::start(Output output, const std::function<void()>& inChild) {
  Channel input, captured, error(output == Output::errorOnTerminal);
  const pid_t parent = getpid();
  _start = std::chrono::steady_clock::now();
  _id = fork();
  if (_id < 0) throw std::runtime_error("no process to be had");
  if (_id == 0) {
    // What it starts ends with it; and it ends with a test that a sanitizer ends.
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(EXIT_FAILURE);
    if (output != Output::inherited) {
      dup2(input.readEnd(), STDIN_FILENO);
      dup2(captured.writeEnd(), STDOUT_FILENO);
      dup2(error.writeEnd(), STDERR_FILENO);
    }
    for (Channel* const channel : {&input, &captured, &error}) {
      close(channel->readEnd());
      close(channel->writeEnd());
    }
    inChild();
  }
  setpgid(_id, _id);  // whoever is first
  if (output == Output::inherited) return;
  _input = input.takeWriteEnd();
  _isWriting = true;
  _reader = std::thread(&Process::collect, this, captured.takeReadEnd(), error.takeReadEnd());
}

Process::~Process() {
  if (_id <= 0) return;
  killAll();
  finish();
}

void Process::write(const std::string& input) const {
  if (::write(_input, input.data(), input.size()) != static_cast<ssize_t>(input.size()))
    throw std::runtime_error("the program takes no input");
}

void Process::closeInput() {
  if (_input >= 0) close(_input);
  _input = -1;
}

std::string Process::standardOutput() const {
  const std::lock_guard lock(_mutex);
  return _result.standardOutput;
}

std::string Process::standardError() const {
  const std::lock_guard lock(_mutex);
  return _result.standardError;
}

void Process::signal(int number) const {
  if (_id > 0) kill(_id, number);
}

void Process::killAll() const {
  kill(-_id, SIGKILL);
}

// What it started may still write when it has ended: an end is the end of both.
bool Process::ends(std::chrono::seconds longest) {
  const auto deadline = std::chrono::steady_clock::now() + longest;
  std::unique_lock lock(_mutex);
  if (!_more.wait_until(lock, deadline, [&] { return !_isWriting; })) return false;
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  pollfd process{static_cast<int>(syscall(SYS_pidfd_open, _id, 0)), POLLIN, 0};
  const bool hasEnded = poll(&process, 1, std::max(0, static_cast<int>(left.count()))) == 1;
  close(process.fd);
  return hasEnded;
}

ProcessResult Process::finish(std::chrono::seconds longest) {
  if (_id <= 0) return _result;
  closeInput();
  if (!ends(longest)) killAll();
  if (_reader.joinable()) _reader.join();
  int status = 0;
  waitpid(_id, &status, 0);
  _id = -1;
  _result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  _result.seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
  return _result;
}

void Process::collect(int output, int error) {
  pollfd sources[] = {{output, POLLIN, 0}, {error, POLLIN, 0}};
  std::string* const targets[] = {&_result.standardOutput, &_result.standardError};
  while (sources[0].fd >= 0 || sources[1].fd >= 0) {
    poll(sources, 2, -1);
    for (int i = 0; i < 2; ++i) {
      if (sources[i].fd < 0 || sources[i].revents == 0) continue;
      if (!readInto(targets[i], sources[i].fd, &_mutex)) close(std::exchange(sources[i].fd, -1));
      _more.notify_all();
    }
  }
  const std::lock_guard lock(_mutex);
  _isWriting = false;
  _more.notify_all();
}

std::string Process::waitFor(const std::string& output, const std::string& text, int times) {
  std::unique_lock lock(_mutex);
  const auto isThere = [&] { return countOf(text, output) >= times; };
  _more.wait_for(lock, longestWait, [&] { return isThere() || !_isWriting; });
  if (isThere()) return output;
  throw std::runtime_error("no '" + text + "' in what the program wrote:\n" +
                           _result.standardOutput + _result.standardError);
}
