#include "dch/service/action_list.h"

#include <sstream>
#include <utility>

#include "dch/service/configuration_error.h"
#include "dch/service/file_content.h"

namespace dch {

namespace {

std::vector<std::string> wordsOf(const std::string& line) {
  std::vector<std::string> words;
  std::istringstream input(line);
  for (std::string word; input >> word && word.front() != '#';) words.push_back(word);
  return words;
}

// Adds the action of a line. Returns what is wrong with it, nothing when it is good.
std::string addAction(std::vector<std::string> words, ActionList* actions) {
  if (words.size() < 2) return "action '" + words.front() + "' has no program";
  std::string name = std::move(words.front());
  words.erase(words.begin());
  if (words.front().front() != '/')
    return "program '" + words.front() + "' is not an absolute path";
  if (actions->contains(name)) return "action '" + name + "' is listed twice";
  actions->emplace(std::move(name), std::move(words));
  return "";
}

std::string located(const std::string& path, int line, const std::string& error) {
  return path + ":" + std::to_string(line) + ": " + error;
}

}  // namespace

ActionList readActionList(const std::string& path) {
  std::istringstream input(contentOfFile(path));
  return readActionList(input, path);
}

ActionList readActionList(std::istream& input, const std::string& path) {
  ActionList actions;
  int number = 0;
  for (std::string line; std::getline(input, line);) {
    ++number;
    std::string error;
    if (line.find('\0') != std::string::npos)
      error = "the line holds a zero byte";
    else if (auto words = wordsOf(line); !words.empty())
      error = addAction(std::move(words), &actions);
    if (!error.empty()) throw ConfigurationError(located(path, number, error));
  }
  return actions;
}

}  // namespace dch
