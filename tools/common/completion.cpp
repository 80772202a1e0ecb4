#include "tools/common/completion.h"

#include <fcntl.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <iostream>
#include <set>
#include <utility>

#include "tools/common/shell_line.h"

namespace tools {
namespace {

// The words that a validator made by oneOf() (command_line.h) accepts: it has them in its name,
// which nothing else uses. Those of others have none.
std::vector<std::string> choicesOf(CLI::Option* option) try {
  const std::string& name = option->get_validator()->get_name();
  return name.empty() ? std::vector<std::string>() : CLI::detail::split(name, '|');
} catch (const CLI::OptionNotFound&) {  // it has no validator
  return {};
}

bool takesValue(const CLI::Option& option) {
  return option.get_items_expected_max() > 0;
}

// Goes along the words before the cursor as the parser would, but takes what is wrong or missing as
// it is: the line is not complete yet.
class LineWalk {
 public:
  LineWalk(CLI::App* app, const FindValues& findValues) : _command(app), _findValues(findValues) {}

  void take(const std::string& word);
  std::vector<Candidate> candidates(const std::string& last) const;

 private:
  bool isOption(const std::string& word) const {
    return !_onlyPositionals && word.size() > 1 && word[0] == '-';
  }
  void takeOption(const std::string& word);
  void give(const CLI::Option* option, const std::string& value);
  CLI::App* commandNamed(const std::string& name) const;
  CLI::Option* nextPositional() const;
  std::vector<Candidate> commands() const;
  std::vector<Candidate> options() const;
  std::vector<Candidate> values(CLI::Option* option) const;

  CLI::App* _command;  // the one that the words have led to
  const FindValues& _findValues;
  CLI::Option* _awaiting = nullptr;  // its value is the next word
  bool _onlyPositionals = false;     // after --
  std::set<const CLI::Option*> _given;
  GivenValues _values;
};

void LineWalk::take(const std::string& word) {
  if (_awaiting != nullptr) {
    give(std::exchange(_awaiting, nullptr), word);
  } else if (!_onlyPositionals && word == "--") {
    _onlyPositionals = true;
  } else if (isOption(word)) {
    takeOption(word);
  } else if (CLI::App* const command = commandNamed(word)) {
    _command = command;
  } else if (const CLI::Option* const positional = nextPositional()) {
    give(positional, word);
  }
}

// --name, --name=value, -n or -nvalue.
void LineWalk::takeOption(const std::string& word) {
  const bool isLong = word.starts_with("--");
  const std::size_t nameEnd = isLong ? std::min(word.find('='), word.size()) : 2;
  CLI::Option* const option = _command->get_option_no_throw(word.substr(0, nameEnd));
  if (option == nullptr) return;
  if (nameEnd < word.size())
    give(option, word.substr(nameEnd + (isLong ? 1 : 0)));
  else if (takesValue(*option))
    _awaiting = option;
  _given.insert(option);
}

void LineWalk::give(const CLI::Option* option, const std::string& value) {
  _given.insert(option);
  _values[option->get_name()] = value;
}

CLI::App* LineWalk::commandNamed(const std::string& name) const {
  for (CLI::App* const each : _command->get_subcommands(nullptr))
    if (each->check_name(name)) return each;
  return nullptr;
}

CLI::Option* LineWalk::nextPositional() const {
  for (CLI::Option* const each : _command->get_options())
    if (each->get_positional() && !_given.contains(each)) return each;
  return nullptr;
}

std::vector<Candidate> LineWalk::candidates(const std::string& last) const {
  if (_awaiting != nullptr) return values(_awaiting);
  if (!_onlyPositionals && last.starts_with("-")) {
    const std::size_t equals = last.find('=');
    if (!last.starts_with("--") || equals == std::string::npos) return options();
    CLI::Option* const option = _command->get_option_no_throw(last.substr(0, equals));
    if (option == nullptr || !takesValue(*option)) return {};
    std::vector<Candidate> found = values(option);
    for (Candidate& each : found)
      if (each != anyFile) each.word.insert(0, last, 0, equals + 1);
    return found;
  }
  if (CLI::Option* const positional = nextPositional()) return values(positional);
  if (std::vector<Candidate> found = commands(); !found.empty()) return found;
  return _onlyPositionals ? std::vector<Candidate>() : options();
}

std::vector<Candidate> LineWalk::commands() const {
  std::vector<Candidate> found;
  for (const CLI::App* each : _command->get_subcommands(nullptr))
    found.push_back({each->get_name(), each->get_description()});
  return found;
}

std::vector<Candidate> LineWalk::options() const {
  std::vector<Candidate> found;
  for (const CLI::Option* each : _command->get_options()) {
    if (_given.contains(each)) continue;
    for (const std::string& name : each->get_snames())
      found.push_back({"-" + name, each->get_description()});
    for (const std::string& name : each->get_lnames())
      found.push_back({"--" + name, each->get_description()});
  }
  return found;
}

std::vector<Candidate> LineWalk::values(CLI::Option* option) const {
  // A positional of that kind has it for its name.
  if (option->get_type_name() == "FILE" || option->get_name() == "FILE") return {anyFile};
  std::vector<Candidate> found;
  for (const std::string& each : choicesOf(option)) found.push_back({each, ""});
  if (!found.empty() || !_findValues) return found;
  try {
    return _findValues(*_command, option->get_name(), _values);
  } catch (const std::exception&) {
    return {};
  }
}

std::string lineOf(const Candidate& candidate) {
  return candidate.word + (candidate.help.empty() ? "" : '\t' + candidate.help) + '\n';
}

std::string answerWords(CLI::App& app, std::vector<std::string> words, const FindValues& find) {
  if (words.empty()) words.emplace_back();
  std::string answer;
  for (const Candidate& each : candidatesFor(app, words, find)) answer += lineOf(each);
  return answer;
}

std::string answerLine(CLI::App& app, const std::string& breaks, const std::string& text,
                       const FindValues& find) {
  const ShellLine line(text, breaks);
  if (line.isFileName()) return lineOf(anyFile);
  std::vector<std::string> words = line.words();
  words.erase(words.begin());  // the program
  if (words.empty()) return {};
  std::string answer;
  for (const Candidate& each : candidatesFor(app, words, find))
    if (each == anyFile)
      answer += lineOf(each);
    else if (each.word.starts_with(words.back()))
      answer += line.replacement(each.word) + '\n';
  return answer;
}

}  // namespace

std::vector<Candidate> candidatesFor(CLI::App& app, const std::vector<std::string>& words,
                                     const FindValues& findValues) {
  LineWalk walk(&app, findValues);
  for (std::size_t i = 0; i + 1 < words.size(); ++i) walk.take(words[i]);
  return walk.candidates(words.back());
}

std::optional<int> complete(CLI::App& app, int argc, const char* const* argv,
                            const FindValues& findValues) {
  const std::string request = argc > 1 ? argv[1] : "";
  if (request != "--complete" && request != "--complete-line") return std::nullopt;
  // Nothing may come between what the shell shows.
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nowhere >= 0) dup2(nowhere, STDERR_FILENO);
  std::string answer;
  if (request == "--complete")
    answer = answerWords(app, {argv + 2, argv + argc}, findValues);
  else if (argc == 4)
    answer = answerLine(app, argv[2], argv[3], findValues);
  std::cout << answer << std::flush;
  return EX_OK;
}

}  // namespace tools
