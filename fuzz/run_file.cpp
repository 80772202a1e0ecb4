// The file of zordp run: whatever is in it, it is taken within its limits, or refused with lines
// that say where.
#include "tools/run/run_file.h"

#include <set>

#include "fuzz/support/require.h"
#include "fuzz/support/told_faults.h"
#include "tools/common/failure.h"

namespace {

bool isInRange(const std::optional<std::chrono::milliseconds>& time) {
  return !time || (time->count() >= 100 && time->count() <= 86'400'000);
}

void checkTaken(const tools::RunFile& taken) {
  using Format = tools::RowsTable::Format;
  fuzz::require(!taken.rows.empty() && taken.rows.size() <= tools::mostRowsTables, "tables");
  std::set<std::pair<std::string, std::string>> sources;
  for (const tools::RowsTable& each : taken.rows) {
    fuzz::require(!each.group.name.empty() && !each.command.empty(), "a group and a command");
    fuzz::require(!each.source.empty() && each.source.size() <= 32, "a source");
    fuzz::require(sources.emplace(each.group.name, each.source).second, "each source once");
    fuzz::require(isInRange(each.every) && isInRange(each.timeout), "seconds");
    fuzz::require(!each.every || each.timeout, "a run has an end");
    fuzz::require(each.format != Format::words || !each.columns.empty(), "columns of words");
    fuzz::require(each.format != Format::jsonl || each.columns.empty(), "no columns of JSON");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), count);
  try {
    checkTaken(tools::readRunText(text, "F"));
  } catch (const tools::Failure& failure) {
    fuzz::requireFaultsOf(text, failure.what());
  }
  return 0;
}
