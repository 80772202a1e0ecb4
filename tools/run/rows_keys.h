// rows_keys.h: the keys of a table [[rows]], and what values they take.
#ifndef TOOLS_RUN_ROWS_KEYS_H
#define TOOLS_RUN_ROWS_KEYS_H

#include <span>

#include "files/faults.h"
#include "tools/run/run_file.h"

namespace tools {

struct RowsKey {
  const char* name;
  // Throws files::WrongValue.
  void (*read)(const toml::node& value, const suite::Registration& registration, RowsTable* table);
};

// In the order of their names.
std::span<const RowsKey> rowsKeys();

// A text in quotes that is not empty. Throws files::WrongValue.
std::string textIn(const toml::node& value, const std::string& whatItHasToBe);

}  // namespace tools

#endif  // TOOLS_RUN_ROWS_KEYS_H
