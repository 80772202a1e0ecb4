#include "tools/catalogue_command.h"

#include <sysexits.h>

#include <algorithm>
#include <iostream>
#include <vector>

#include "tools/catalogue_question.h"
#include "tools/common/failure.h"
#include "tools/common/output.h"
#include "tools/common/printable.h"
#include "tools/record_writer.h"

namespace tools {
namespace {

using Record = std::vector<std::string>;

std::string ask(CatalogueQuery query, const CatalogueOptions& options) {
  return askCatalogue(query, options.appl, options.waitSeconds);
}

std::string askAboutOne(CatalogueQuery query, const CatalogueOptions& options,
                        const char* missing) {
  std::string answer = ask(query, options);
  if (answer.empty()) throw Failure(EX_NOINPUT, missing + inQuotes(options.appl));
  return answer;
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
  const auto [records, isTruncated] = catalogueRecords(answer, columns.size());
  for (const Record& record : records) widen(&columns, record);
  const auto writer = makeRecordWriter(format, columns);
  for (const Record& record : records)
    if (!printLines(writer->format(record))) return;
  if (records.empty()) std::cerr << "zordc: nothing is registered\n";
  if (isTruncated)
    std::cerr << "zordc: warning: the DCH cut its answer after " << records.size() << " lines\n";
}

}  // namespace

int showApplications(const CatalogueOptions& options) {
  const CatalogueQuery query = &DCHclient::dc_getApplications;
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
