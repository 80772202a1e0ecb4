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
#include "tools/provider_source.h"
#include "tools/registration_file.h"
#include "tools/row_delivery.h"
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

// Sends every row of the input, each as soon as it is there.
void sendRows(RowReader& reader, const LineInput& input, RowDelivery& delivery,
              Progress& progress) {
  InputRow row;
  while (reader.next(&row)) {
    try {
      delivery.deliver(encodeRow(row));
      progress.rowSent();
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
  ProviderApplication application(registration, options.keep
                                                    ? ProviderApplication::AtEnd::staysRegistered
                                                    : ProviderApplication::AtEnd::unregister);
  ProviderSource source(application, group.name, options.source);
  application.enter();
  source.goOnline();
  // Until here a signal may simply end the process; from here on the source wants its end.
  watch.takeSignals();
  DchPresence presence([&](const std::string& text) { progress.say(text); });
  RowDelivery delivery(source, presence, [&] { watch.checkSignals(); });
  try {
    sendRows(*reader, input, delivery, progress);
  } catch (const StoppedBySignal& stop) {
    progress.finish();
    source.end();
    application.end();
    std::cerr << "zordp: stopped by signal " << stop.signal() << " (" << strsignal(stop.signal())
              << "), " << describeRows(progress.rows()) << " sent\n";
    return 128 + stop.signal();
  } catch (const Failure& failure) {
    progress.finish();
    throw Failure(failure.exitStatus(), std::string(failure.what()) + "; " +
                                            describeRows(progress.rows()) + " sent before");
  }
  progress.finish();
  source.end();
  application.end();
  return EX_OK;
}

}  // namespace tools
