#include "tests/faults/answering_dch.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/scripted_dch.h"

namespace {

// The switch of a subscription is the last field.
bool starts(const std::string& subscription) {
  return subscription.back() == DCH_SUBSCRIPTION_START;
}

std::string row() {
  return messageOf([](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_DATA})
        .add(DCH_handle, ZORA_Long{815})
        .add(DCH_dataCode, short{17})
        .add(DCH_attrName, "load1")
        .addAttributeValue("0.25", 4, 'D');
  });
}

std::string notification() {
  return messageOf([](DCH_MessageBuilder& message) {
    message.add(DCH_applName, "HOSTMON")
        .add(DCH_attrGroup, "load")
        .add(DCH_sourceName, "host1")
        .add(DCH_requestType, short{DCH_REQUEST_ONLINE});
  });
}

std::string catalogueAnswer() {
  return messageOf(
      [](DCH_MessageBuilder& message) { message.addBytes(DCH_response, "answer", 6); });
}

std::vector<std::string> answersTo(const std::string& request) {
  switch (requestCode(request)) {
    case DCH_REQUEST_REGISTER:
    case DCH_REQUEST_UNREGISTER:
    case DCH_REQUEST_OFFLINE:
    case DCH_REQUEST_DATA:
      return {statusAnswer(0)};
    case DCH_REQUEST_ONLINE:
      return {onlineAnswer(0, 815)};
    case DCH_REQUEST_ACTION_RESULTS:
      return {statusAnswer(7)};
    case DCH_REQUEST_APPLICATIONS:
    case DCH_REQUEST_ATTRIBUTES:
    case DCH_REQUEST_HELP:
      return {catalogueAnswer()};
    case DCH_REQUEST_DATA_SUBSCRIPTION:
      if (starts(request) && request.find("HOSTMON") != std::string::npos) return {row()};
      return {};
    case DCH_REQUEST_STATUS_SUBSCRIPTION:
      if (starts(request)) return {notification()};
      return {};
    default:
      return {};
  }
}

[[noreturn]] void serve(int portEnd) {
  const ScriptedDch dch(answersTo);
  const int port = dch.port();
  if (write(portEnd, &port, sizeof port) != sizeof port) _exit(EXIT_FAILURE);
  for (;;) pause();
}

}  // namespace

AnsweringDch::AnsweringDch() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe for the DCH");
  _process.emplace([&]() -> int { serve(ends[1]); }, Process::Environment{},
                   Process::Output::inherited);
  close(ends[1]);
  int port = 0;
  const bool isServing = read(ends[0], &port, sizeof port) == sizeof port;
  close(ends[0]);
  if (!isServing) throw std::runtime_error("the DCH does not serve");
  setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
  setenv("ZORA_DCH_PORT", std::to_string(port).c_str(), 1);
}
