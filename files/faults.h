// faults.h: all that is wrong with a file that a person wrote.
#ifndef FILES_FAULTS_H
#define FILES_FAULTS_H

#include <cstddef>
#include <map>
#include <string>
#include <utility>

#include "files/toml.h"

namespace files {

// Thrown about a value, or about one in an array.
struct WrongValue {
  const toml::node& value;
  std::string whatItHasToBe;  // such as "true or false"
  bool isSecret = false;      // nobody is to read it in a log
};

class Faults {
 public:
  explicit Faults(std::string path) : _path(std::move(path)) {}

  void add(std::size_t line, const std::string& fault) {
    _faults.emplace(line, _path + ':' + std::to_string(line) + ": " + fault);
  }
  void add(const toml::source_region& where, const std::string& fault) {
    add(where.begin.line, fault);
  }

  bool areThere() const { return !_faults.empty(); }

  // A line for each without the last one's end, in the order of the file:
  //   zordchd.toml:3: port in [channel] has to be a whole number from 0 to 65535, not 70000
  std::string text() const {
    std::string text;
    for (const auto& [line, fault] : _faults) text += (text.empty() ? "" : "\n") + fault;
    return text;
  }

 private:
  std::string _path;
  std::multimap<std::size_t, std::string> _faults;  // by line
};

}  // namespace files

#endif  // FILES_FAULTS_H
