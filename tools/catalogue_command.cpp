#include "tools/catalogue_command.h"

#include <sysexits.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <vector>

#include "tools/common/failure.h"
#include "tools/common/output.h"
#include "tools/common/printable.h"
#include "tools/common/transport_check.h"
#include "tools/record_writer.h"
#include "zordchcl/zordchcl.h"

namespace tools {
namespace {

using Query = int (*)(ZORA_Long*, char**, const char*, short);
using Record = std::vector<std::string>;

constexpr char truncatedLine[] = "#truncated";

// The text of the answer, nothing when it was empty. An answer that is empty and one that did not
// come look the same to the library's caller; the time that it took tells them apart.
std::optional<std::string> ask(Query query, const CatalogueOptions& options) {
  std::signal(SIGPIPE, SIG_IGN);
  checkTransport();
  const auto start = std::chrono::steady_clock::now();
  ZORA_Long length = 0;
  char* answer = nullptr;
  const char* const appl = options.appl.empty() ? nullptr : options.appl.c_str();
  const int result = query(&length, &answer, appl, options.waitSeconds);
  const std::unique_ptr<char, void (*)(void*)> owned(answer, std::free);
  if (result == 0 && answer == nullptr) throw Failure(EX_OSERR, "no memory for the answer");
  if (result == 0) return std::string(answer, static_cast<std::size_t>(length));
  if (std::chrono::steady_clock::now() - start >= std::chrono::seconds(options.waitSeconds))
    throw Failure(EX_UNAVAILABLE,
                  "no answer from the DCH in " + std::to_string(options.waitSeconds) + " s");
  return std::nullopt;
}

std::string askAboutOne(Query query, const CatalogueOptions& options, const char* missing) {
  const std::optional<std::string> answer = ask(query, options);
  if (!answer) throw Failure(EX_NOINPUT, missing + inQuotes(options.appl));
  return *answer;
}

// The parts of a line; the last one takes what is left, commas included.
Record split(const std::string& line, std::size_t parts) {
  Record record;
  std::istringstream rest(line);
  std::string part;
  while (record.size() + 1 < parts && std::getline(rest, part, ',')) record.push_back(part);
  if (std::getline(rest, part)) record.push_back(part);
  record.resize(parts);
  return record;
}

// Widens the columns to their values, so that a table is aligned from its first line on.
void widen(std::vector<RecordColumn>* columns, const Record& record) {
  for (std::size_t i = 0; i < record.size(); ++i) {
    RecordColumn& column = (*columns)[i];
    column.width = std::max(column.width, printable(record[i]).columns);
  }
}

void print(const std::string& answer, std::vector<RecordColumn> columns,
           const std::string& format) {
  std::vector<Record> records;
  std::istringstream lines(answer);
  bool isTruncated = false;
  for (std::string line; std::getline(lines, line);) {
    isTruncated = line == truncatedLine;
    if (isTruncated) break;
    records.push_back(split(line, columns.size()));
    widen(&columns, records.back());
  }
  const auto writer = makeRecordWriter(format, columns);
  for (const Record& record : records)
    if (!printLines(writer->format(record))) return;
  if (isTruncated)
    std::cerr << "zordc: warning: the DCH cut its answer after " << records.size() << " lines\n";
}

}  // namespace

int showApplications(const CatalogueOptions& options) {
  const auto answer = options.appl.empty()
                          ? ask(dc_getApplications, options)
                          : askAboutOne(dc_getApplications, options, "no application ");
  print(answer.value_or(""), {{"name"}, {"key"}, {"type"}, {"groups"}, {"online", true}},
        options.format);
  return EX_OK;
}

int showAttributes(const CatalogueOptions& options) {
  print(askAboutOne(dc_getApplAttributes, options, "no application "),
        {{"group"}, {"name"}, {"letter"}, {"size", true}, {"help"}}, options.format);
  return EX_OK;
}

int showHelp(const CatalogueOptions& options) {
  std::string text = askAboutOne(dc_getApplHelp, options, "no help text for ");
  if (text.empty() || text.back() != '\n') text += '\n';
  printLines(text);
  return EX_OK;
}

}  // namespace tools
