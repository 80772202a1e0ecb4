#include "tools/catalogue_question.h"

#include <sysexits.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <sstream>

#include "tools/common/failure.h"
#include "tools/common/printable.h"
#include "tools/common/transport_check.h"
#include "zordsock/settings.h"

namespace tools {
namespace {

constexpr char truncatedLine[] = "#truncated";

// The client has read where it is.
std::string theDch() {
  return "the DCH at " + printable(zordsock::_envDCHname).text + ':' +
         std::to_string(zordsock::_envPortNo);
}

std::vector<std::string> split(const std::string& line, std::size_t parts) {
  std::vector<std::string> record;
  std::istringstream rest(line);
  std::string part;
  while (record.size() + 1 < parts && std::getline(rest, part, ',')) record.push_back(part);
  if (std::getline(rest, part)) record.push_back(part);
  record.resize(parts);
  return record;
}

}  // namespace

std::string askCatalogue(CatalogueQuery query, const std::string& appl, short waitSeconds) {
  std::signal(SIGPIPE, SIG_IGN);
  checkTransport();
  DCHclient client(0, 1);  // without an interrupt socket, on a pooled port
  const auto start = std::chrono::steady_clock::now();
  char* answer = nullptr;
  const ZORA_Long length =
      (client.*query)(&answer, appl.empty() ? nullptr : appl.c_str(), waitSeconds);
  const std::unique_ptr<char, void (*)(void*)> owned(answer, std::free);
  if (answer != nullptr) return std::string(answer, static_cast<std::size_t>(length));
  if (std::chrono::steady_clock::now() - start < std::chrono::seconds(waitSeconds))
    throw Failure(EX_UNAVAILABLE, theDch() + " could not be asked, or did not answer the question");
  throw Failure(EX_UNAVAILABLE,
                "no answer from " + theDch() + " in " + std::to_string(waitSeconds) + " s");
}

CatalogueRecords catalogueRecords(const std::string& answer, std::size_t parts) {
  CatalogueRecords result;
  std::istringstream lines(answer);
  for (std::string line; std::getline(lines, line);) {
    result.isTruncated = line == truncatedLine;
    if (result.isTruncated) break;
    result.records.push_back(split(line, parts));
  }
  return result;
}

}  // namespace tools
