#include "tools/catalogue_command.h"

#include <sysexits.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <sstream>
#include <vector>

#include "tools/common/failure.h"
#include "tools/common/output.h"
#include "tools/common/printable.h"
#include "tools/common/transport_check.h"
#include "tools/record_writer.h"
#include "zordchcl/DCHclient.h"
#include "zordsock/settings.h"

namespace tools {
namespace {

using Query = ZORA_Long (DCHclient::*)(char**, const char*, ZORA_Long);
using Record = std::vector<std::string>;

constexpr char truncatedLine[] = "#truncated";

// The client has read where it is.
std::string theDch() {
  return "the DCH at " + printable(zordsock::_envDCHname).text + ':' +
         std::to_string(zordsock::_envPortNo);
}

// The text of the answer. Asks through the client and not the exported functions: those fail alike
// for an answer that is empty, one that does not come and a question that cannot be sent.
std::string ask(Query query, const CatalogueOptions& options) {
  std::signal(SIGPIPE, SIG_IGN);
  checkTransport();
  DCHclient client(0, 1);  // without an interrupt socket, on a pooled port
  const char* const appl = options.appl.empty() ? nullptr : options.appl.c_str();
  const auto start = std::chrono::steady_clock::now();
  char* answer = nullptr;
  const ZORA_Long length = (client.*query)(&answer, appl, options.waitSeconds);
  const std::unique_ptr<char, void (*)(void*)> owned(answer, std::free);
  if (answer != nullptr) return std::string(answer, static_cast<std::size_t>(length));
  if (std::chrono::steady_clock::now() - start < std::chrono::seconds(options.waitSeconds))
    throw Failure(EX_UNAVAILABLE, theDch() + " could not be asked, or did not answer the question");
  throw Failure(EX_UNAVAILABLE,
                "no answer from " + theDch() + " in " + std::to_string(options.waitSeconds) + " s");
}

std::string askAboutOne(Query query, const CatalogueOptions& options, const char* missing) {
  std::string answer = ask(query, options);
  if (answer.empty()) throw Failure(EX_NOINPUT, missing + inQuotes(options.appl));
  return answer;
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
  if (records.empty()) std::cerr << "zordc: nothing is registered\n";
  if (isTruncated)
    std::cerr << "zordc: warning: the DCH cut its answer after " << records.size() << " lines\n";
}

}  // namespace

int showApplications(const CatalogueOptions& options) {
  const Query query = &DCHclient::dc_getApplications;
  print(options.appl.empty() ? ask(query, options) : askAboutOne(query, options, "no application "),
        {{"name"}, {"key"}, {"type"}, {"groups"}, {"online", true}}, options.format);
  return EX_OK;
}

int showAttributes(const CatalogueOptions& options) {
  print(askAboutOne(&DCHclient::dc_getApplAttributes, options, "no application "),
        {{"group"}, {"name"}, {"letter"}, {"size", true}, {"help"}}, options.format);
  return EX_OK;
}

int showHelp(const CatalogueOptions& options) {
  std::string text = askAboutOne(&DCHclient::dc_getApplHelp, options, "no help text for ");
  if (text.empty() || text.back() != '\n') text += '\n';
  printLines(text);
  return EX_OK;
}

}  // namespace tools
