#include "tools/run/run_file.h"

#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <map>
#include <set>
#include <utility>

#include "files/faults.h"
#include "tools/common/failure.h"
#include "tools/common/printable.h"
#include "tools/common/values.h"
#include "tools/line_input.h"
#include "tools/row_reader.h"
#include "tools/run/rows_keys.h"
#include "zordchcl/zordchcl.h"

namespace tools {
namespace {

using Format = RowsTable::Format;

constexpr std::size_t mostFileBytes = 1 << 20;
constexpr std::chrono::milliseconds longestDefaultTimeout{60'000};
constexpr char topKeys[] = "registration, rows";

std::string thisMachine() {
  char name[HOST_NAME_MAX + 1] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

// Reads one table after the other, and gathers all that is wrong.
class RunFileReader {
 public:
  explicit RunFileReader(const std::string& path) : _faults(path) {}

  RunFile read(std::string_view text) {
    try {
      read(files::parseToml(text));
    } catch (const files::NoToml& fault) {
      _faults.add(fault.line, printable(fault.reason).text);
    }
    if (_faults.areThere()) throw Failure(EX_DATAERR, _faults.text());
    return std::move(_file);
  }

 private:
  using Region = toml::source_region;

  void read(const toml::table& file) {
    for (const auto& [name, value] : file)
      if (name.str() != "registration" && name.str() != "rows")
        _faults.add(name.source(), "there is no key " + inQuotes(name.str()) + "; there are " +
                                       std::string(topKeys));
    // The tables' groups are those of the registration, wherever that stands.
    if (const toml::node* const text = file.get("registration"))
      attempt("registration", "", [&] { readRegistration(*text); });
    else
      _faults.add(1, "registration is missing");
    if (const toml::node* const tables = file.get("rows"))
      attempt("rows", "", [&] { readTables(*tables); });
    else
      _faults.add(1, "there is no table [[rows]]");
  }

  // Does what may throw WrongValue.
  template <class Function>
  void attempt(const std::string& key, const std::string& where, Function function) {
    try {
      function();
    } catch (const files::WrongValue& wrong) {
      _faults.add(wrong.value.source(), key + where + " has to be " + wrong.whatItHasToBe +
                                            ", not " + shown(files::describeValue(wrong.value)));
    }
  }

  static std::string shown(const std::string& value) {
    constexpr std::size_t mostShown = 60;
    const std::string start = printable(value.substr(0, mostShown)).text;
    return value.size() > mostShown ? start + "..." : start;
  }

  void readRegistration(const toml::node& value) {
    const std::string text = textIn(value, "the text that registers the application in quotes");
    std::string error;
    if (!suite::parseRegistration(text, &_file.registration, &error))
      _faults.add(value.source(), "registration: " + error);
  }

  void readTables(const toml::node& value) {
    const toml::array* const tables = value.as_array();
    if (tables == nullptr || !tables->is_homogeneous(toml::node_type::table))
      throw files::WrongValue{value, "tables [[rows]]"};
    if (tables->size() > mostRowsTables)
      _faults.add(value.source(), std::to_string(tables->size()) +
                                      " tables [[rows]] are more than " +
                                      std::to_string(mostRowsTables));
    for (const toml::node& each : *tables) readTable(*each.as_table());
  }

  void readTable(const toml::table& table) {
    RowsTable rows;
    rows.source = thisMachine();
    for (const auto& [name, value] : table) readKey(name, value, &rows);
    const Region& where = table.source();
    for (const char* required : {"group", "command"})
      if (!table.contains(required))
        _faults.add(where, std::string(required) + " is missing in [[rows]]");
    if (rows.every && !rows.timeout) rows.timeout = std::min(*rows.every, longestDefaultTimeout);
    checkSource(table, rows);
    checkColumns(table, rows);
    if (!rows.group.name.empty()) checkGroup(table, rows);
    _file.rows.push_back(std::move(rows));
  }

  void readKey(const toml::key& name, const toml::node& value, RowsTable* rows) {
    std::string known;
    for (const RowsKey& key : rowsKeys()) {
      if (name.str() == key.name)
        return attempt(key.name, " in [[rows]]",
                       [&] { key.read(value, _file.registration, rows); });
      known += (known.empty() ? "" : ", ") + std::string(key.name);
    }
    _faults.add(name.source(),
                "there is no key " + inQuotes(name.str()) + " in [[rows]]; there are " + known);
  }

  static const Region& regionOf(const toml::table& table, const char* key) {
    const toml::node* const value = table.get(key);
    return value != nullptr ? value->source() : table.source();
  }

  void checkSource(const toml::table& table, const RowsTable& rows) {
    if (!table.contains("source") &&
        (rows.source.empty() || rows.source.size() > DCH_MAX_SOURCE_NAME))
      _faults.add(table.source(), "source is missing in [[rows]]: the name of this machine, " +
                                      inQuotes(rows.source) + ", is none of 1 to " +
                                      std::to_string(DCH_MAX_SOURCE_NAME) + " characters");
  }

  void checkColumns(const toml::table& table, const RowsTable& rows) {
    if (rows.format == Format::jsonl && table.contains("columns"))
      _faults.add(regionOf(table, "columns"), "columns in [[rows]] are not for \"jsonl\"");
    if (rows.format == Format::words && !table.contains("columns"))
      _faults.add(regionOf(table, "format"), "columns are missing in [[rows]] of \"words\"");
  }

  void checkGroup(const toml::table& table, const RowsTable& rows) {
    RowColumns named;
    for (const std::string& each : rows.columns) try {
        resolveAttribute(rows.group, each, &named);
      } catch (const BadValue& error) {
        _faults.add(regionOf(table, "columns"),
                    std::string("columns in [[rows]]: ") + error.what());
      }
    for (const suite::RegisteredAttribute& attribute : rows.group.attributes) try {
        checkAttribute(attribute);
      } catch (const BadValue& error) {
        _faults.add(regionOf(table, "group"), "group in [[rows]]: attribute " +
                                                  inQuotes(attribute.name) + ": " + error.what());
      }
    // With a source of its own on line the first of the two would take the other one off line.
    const auto [other, isFirst] =
        _lines.emplace(std::pair(rows.group.name, rows.source), table.source().begin.line);
    if (!isFirst)
      _faults.add(table.source(), "group " + inQuotes(rows.group.name) + " and source " +
                                      inQuotes(rows.source) + " are those of line " +
                                      std::to_string(other->second) + ", too");
  }

  files::Faults _faults;
  RunFile _file;
  std::map<std::pair<std::string, std::string>, std::size_t> _lines;  // of groups and sources
};

}  // namespace

RunFile readRunFile(const std::string& path) {
  LineInput file(path, [](int) {});
  std::string text;
  for (std::string line; file.next(&line);) {
    text += line;
    if (text.size() > mostFileBytes)
      throw Failure(EX_DATAERR, path + ": it is larger than a megabyte, more than it may be");
  }
  return readRunText(text, path);
}

RunFile readRunText(std::string_view text, const std::string& path) {
  return RunFileReader(path).read(text);
}

}  // namespace tools
