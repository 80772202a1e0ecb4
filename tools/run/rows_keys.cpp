#include "tools/run/rows_keys.h"

#include <algorithm>

#include "tools/common/printable.h"
#include "zordchcl/zordchcl.h"

namespace tools {
namespace {

using files::WrongValue;

void readColumns(const toml::node& value, const suite::Registration& /*registration*/,
                 RowsTable* table) {
  const toml::array* const names = value.as_array();
  if (names == nullptr || names->empty())
    throw WrongValue{value, "an array such as [\"mount\", \"used\"]"};
  for (const toml::node& each : *names)
    table->columns.push_back(textIn(each, "the name of an attribute in quotes"));
}

void readCommand(const toml::node& value, const suite::Registration& /*registration*/,
                 RowsTable* table) {
  table->command = textIn(value, "a command for the shell in quotes");
}

std::chrono::milliseconds secondsIn(const toml::node& value) {
  constexpr double least = 0.1, most = 86'400;
  const std::optional<double> seconds = value.is_number() ? value.value<double>() : std::nullopt;
  if (!seconds || !(*seconds >= least && *seconds <= most))
    throw WrongValue{value, "a number of seconds from 0.1 to 86400"};
  return std::chrono::round<std::chrono::milliseconds>(std::chrono::duration<double>(*seconds));
}

void readEvery(const toml::node& value, const suite::Registration& /*registration*/,
               RowsTable* table) {
  table->every = secondsIn(value);
}

void readFormat(const toml::node& value, const suite::Registration& /*registration*/,
                RowsTable* table) {
  using Format = RowsTable::Format;
  const std::optional<std::string> name = value.value_exact<std::string>();
  if (name == "csv")
    table->format = Format::csv;
  else if (name == "jsonl")
    table->format = Format::jsonl;
  else if (name == "words")
    table->format = Format::words;
  else
    throw WrongValue{value, "\"csv\", \"jsonl\" or \"words\""};
}

void readGroup(const toml::node& value, const suite::Registration& registration, RowsTable* table) {
  const std::optional<std::string> name = value.value_exact<std::string>();
  std::string names;
  for (const suite::RegisteredGroup& each : registration.groups) {
    if (name == each.name) table->group = each;
    names += (names.empty() ? "" : ", ") + each.name;
  }
  if (!table->group.name.empty()) return;
  // Without a registration nobody knows which groups there are.
  if (!name || !names.empty())
    throw WrongValue{value, "a group of the registration" +
                                (names.empty() ? "" : ", one of " + printable(names).text)};
}

void readSource(const toml::node& value, const suite::Registration& /*registration*/,
                RowsTable* table) {
  const std::string expected =
      "a name of 1 to " + std::to_string(DCH_MAX_SOURCE_NAME) + " characters";
  table->source = textIn(value, expected);
  if (table->source.size() > DCH_MAX_SOURCE_NAME) throw WrongValue{value, expected};
}

void readTimeout(const toml::node& value, const suite::Registration& /*registration*/,
                 RowsTable* table) {
  table->timeout = secondsIn(value);
}

constexpr RowsKey keys[] = {
    {"columns", readColumns}, {"command", readCommand}, {"every", readEvery},
    {"format", readFormat},   {"group", readGroup},     {"source", readSource},
    {"timeout", readTimeout},
};

}  // namespace

std::span<const RowsKey> rowsKeys() {
  return keys;
}

std::string textIn(const toml::node& value, const std::string& whatItHasToBe) {
  const std::optional<std::string> text = value.value_exact<std::string>();
  if (!text || text->empty() || text->find('\0') != std::string::npos)
    throw WrongValue{value, whatItHasToBe};
  return *text;
}

}  // namespace tools
