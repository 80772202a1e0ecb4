#include "dch/testkit/server_process.h"

#include <stdexcept>

namespace dch::testkit {

namespace {

Process::Arguments onPort(int port, const Process::Arguments& more) {
  Process::Arguments arguments{"--port", std::to_string(port)};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

}  // namespace

ServerProcess::ServerProcess(const Arguments& moreArguments, void (*prepare)(), int port,
                             const Process::Environment& environment)
    : _process(ZORDCHD_PATH, onPort(port, moreArguments), environment, Process::Output::captured,
               prepare),
      _port(portIn(_process.waitForOutput("\n"))) {}

int ServerProcess::pagePort() {
  return pagePortIn(_process.waitForOutput("/\n"));
}

bool ServerProcess::waitForError(const std::string& text, int times) {
  try {
    _process.waitForError(text, times);
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

int ServerProcess::stop(int signal) {
  _process.signal(signal);
  return _process.finish().exitStatus;
}

// The last word of the first line, which says that the server is ready.
int portIn(const std::string& output) {
  const std::string ready = output.substr(0, output.find('\n'));
  return std::stoi(ready.substr(ready.rfind(' ')));
}

int pagePortIn(const std::string& output) {
  return std::stoi(output.substr(output.rfind(':') + 1));
}

const char* serverPath() {
  return ZORDCHD_PATH;
}

ProcessResult runServer(const ServerProcess::Arguments& arguments,
                        const Process::Environment& environment) {
  return Process(ZORDCHD_PATH, arguments, environment).finish();
}

}  // namespace dch::testkit
