#include "tools/watch_command.h"

#include <sysexits.h>

#include <clocale>
#include <csignal>
#include <iostream>

#include "tools/common/output.h"
#include "tools/common/transport_check.h"
#include "tools/data_wait.h"
#include "tools/row_writer.h"
#include "tools/text_table.h"

namespace tools {
namespace {

std::unique_ptr<RowWriter> makeWriter(const std::string& format) {
  if (format == "csv") return makeCsvWriter();
  if (format == "jsonl") return makeJsonLinesWriter();
  return makeTableWriter(screenLines());
}

std::optional<DataWait::Clock::duration> quietLimit(const WatchOptions& options) {
  if (!options.timeoutSeconds) return std::nullopt;
  return std::chrono::duration_cast<DataWait::Clock::duration>(
      std::chrono::duration<double>(*options.timeoutSeconds));
}

std::optional<PushedRow> readMessage(std::span<char> message) {
  try {
    return readPushedRow(message);
  } catch (const MalformedMessage& error) {
    std::cerr << "zordc: warning: a malformed message was skipped: " << error.what() << '\n';
    return std::nullopt;
  }
}

}  // namespace

int watch(const WatchOptions& options) {
  std::setlocale(LC_CTYPE, "");  // what a terminal can print depends on it
  std::signal(SIGPIPE, SIG_IGN);
  checkTransport();
  const auto writer = makeWriter(options.format);
  DataWait wait(options.appl, options.group, quietLimit(options));
  for (std::uint64_t rows = 0; !options.count || rows < *options.count;) {
    const DataWait::Outcome outcome = wait.next();
    if (outcome == DataWait::Outcome::signal) break;
    if (outcome == DataWait::Outcome::quiet) {
      std::cerr << "zordc: no row came for " << *options.timeoutSeconds << " s\n";
      return EX_TEMPFAIL;
    }
    const auto row = readMessage(wait.message());
    if (!row) continue;
    wait.rowCame();
    ++rows;
    if (!printLines(writer->format(formatTime(std::chrono::system_clock::now()), *row))) break;
  }
  return EX_OK;
}

}  // namespace tools
