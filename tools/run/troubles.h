// troubles.h: what is wrong with a command, said when it begins, changes and ends.
#ifndef TOOLS_RUN_TROUBLES_H
#define TOOLS_RUN_TROUBLES_H

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

namespace tools {

using Say = std::function<void(const std::string& text)>;

// How a command ends. One thread.
class CommandTrouble {
 public:
  explicit CommandTrouble(Say say) : _say(std::move(say)) {}

  // `text` is empty when all is well.
  void note(const std::string& text) {
    if (text == _text) return;
    _say(text.empty() ? "the command is well again" : "the command " + text);
    _text = text;
  }

 private:
  Say _say;
  std::string _text;
};

// Lines that are no rows, in streaks. A streak begins with such a line and ends when endStreak() is
// called. Of each the first line is said, unless the streak before began with the same fault; and
// how many there were. One thread.
class BadLines {
 public:
  explicit BadLines(Say say) : _say(std::move(say)) {}

  void add(long number, const std::string& reason) {
    if (_count++ > 0) return;
    _isSaid = reason != _fault;
    _fault = reason;
    if (_isSaid) _say("line " + std::to_string(number) + " is left out: " + reason);
  }

  // `hasRow`: there is a good row, so that a streak without bad lines says something.
  void endStreak(bool hasRow) {
    if (_count > 1 && _isSaid) _say(std::to_string(_count) + " lines were left out");
    if (_count == 0 && hasRow && !_fault.empty()) {
      _fault.clear();
      _say("every line is a row again");
    }
    _count = 0;
  }

 private:
  Say _say;
  std::string _fault;  // of the first line of the last streak; empty when all is well
  std::uint64_t _count = 0;
  bool _isSaid = false;
};

}  // namespace tools

#endif  // TOOLS_RUN_TROUBLES_H
