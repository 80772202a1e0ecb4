#include "tools/send_command.h"

#include <sysexits.h>
#include <unistd.h>

#include <cstring>
#include <iostream>

#include "tools/common/failure.h"
#include "tools/common/printable.h"
#include "tools/common/transport_check.h"
#include "tools/common/values.h"
#include "tools/input_watch.h"
#include "tools/progress.h"
#include "tools/provider_session.h"
#include "tools/registration_file.h"
#include "tools/row_reader.h"

namespace tools {
namespace {

const suite::RegisteredGroup& groupOf(const suite::Registration& registration,
                                      const SendOptions& options) {
  std::string names;
  for (const suite::RegisteredGroup& group : registration.groups) {
    if (group.name == options.group) return group;
    names += (names.empty() ? "" : ", ") + group.name;
  }
  throw Failure(EX_USAGE, options.registrationPath + " has no group " + inQuotes(options.group) +
                              ", it has: " + printable(names).text);
}

void checkAttributes(const suite::RegisteredGroup& group, const std::string& path) {
  for (const suite::RegisteredAttribute& attribute : group.attributes) try {
      checkAttribute(attribute);
    } catch (const BadValue& error) {
      throw Failure(EX_DATAERR,
                    path + ": attribute " + inQuotes(attribute.name) + ": " + error.what());
    }
}

std::string rowCount(std::uint64_t rows) {
  return std::to_string(rows) + (rows == 1 ? " row" : " rows");
}

// Sends a row until the DCH has it, also one that dies and starts anew in the meantime. A row whose
// answer got lost is there twice then.
void deliver(const EncodedRow& row, InputWatch& watch, ProviderSession& session,
             Progress& progress) {
  using Answer = ProviderSession::Answer;
  bool isAway = false;
  for (;;) {
    watch.checkSignals();
    const Answer answer = session.send(row);
    if (answer == Answer::none) {
      if (!isAway) progress.say("the DCH does not answer; trying again");
      isAway = true;
      continue;
    }
    if (answer == Answer::startedAnew)
      progress.say("the DCH has started anew: registered again");
    else if (isAway)
      progress.say("the DCH answers again");
    if (answer == Answer::taken) break;
    isAway = false;
  }
  progress.rowSent();
}

// Sends every row of the input, each as soon as it is there.
void sendRows(RowReader& reader, const LineInput& input, InputWatch& watch,
              ProviderSession& session, Progress& progress) {
  InputRow row;
  while (reader.next(&row)) {
    watch.checkSignals();
    try {
      deliver(encodeRow(row), watch, session, progress);
    } catch (const BadValue& error) {
      input.refuse(row.lineNumber, error.what());
    }
  }
}

}  // namespace

int send(const SendOptions& options) {
  if (options.registrationPath == "-" && options.inputPath == "-")
    throw Failure(EX_USAGE, "registration and rows cannot both come from standard input");
  const suite::Registration registration = readRegistration(options.registrationPath);
  const suite::RegisteredGroup& group = groupOf(registration, options);
  checkAttributes(group, options.registrationPath);
  checkTransport();

  InputWatch watch;
  Progress progress;
  LineInput input(options.inputPath, [&](int descriptor) {
    // Who types the rows keeps the line to type on.
    const bool ticks = progress.enabled() && isatty(descriptor) == 0;
    const int limit = ticks ? static_cast<int>(progressInterval.count()) : -1;
    while (!watch.wait(descriptor, limit)) progress.tick();
  });
  const auto reader =
      options.format == "csv" ? makeCsvReader(input, group) : makeJsonLinesReader(input, group);
  ProviderSession session(
      registration.text, {registration.applName, group.name, options.source},
      options.keep ? ProviderSession::AtEnd::staysRegistered : ProviderSession::AtEnd::unregister);
  // Until here a signal may simply end the process; from here on the session wants its end.
  watch.takeSignals();
  try {
    sendRows(*reader, input, watch, session, progress);
  } catch (const StoppedBySignal& stop) {
    progress.finish();
    session.end();
    std::cerr << "zordp: stopped by signal " << stop.signal() << " (" << strsignal(stop.signal())
              << "), " << rowCount(progress.rows()) << " sent\n";
    return 128 + stop.signal();
  } catch (const Failure& failure) {
    progress.finish();
    throw Failure(failure.exitStatus(),
                  std::string(failure.what()) + "; " + rowCount(progress.rows()) + " sent before");
  }
  progress.finish();
  session.end();
  return EX_OK;
}

}  // namespace tools
