// shell_line.h: a command line of bash up to its cursor, taken apart as bash will do. bash hands it
// to a completion as it was typed, quotes included, and wants what it gets back quoted.
#ifndef TOOLS_COMMON_SHELL_LINE_H
#define TOOLS_COMMON_SHELL_LINE_H

#include <cstddef>
#include <string>
#include <vector>

namespace tools {

class ShellLine {
 public:
  // `breaks` holds the characters at which bash lets what it completes begin anew inside of a word,
  // COMP_WORDBREAKS. Nothing is expanded: $HOME is a word of five characters.
  ShellLine(const std::string& line, const std::string& breaks);

  // Without quotes, the last one as far as it is there; at least one. Redirections are left out.
  const std::vector<std::string>& words() const { return _words; }

  // Whether the last word is the file of a redirection, which is not among the words.
  bool isFileName() const { return _isFileName; }

  // `word`, which begins with the last of the words, as bash is to insert it: quoted as is needed
  // where it goes, without what bash leaves as it was typed.
  std::string replacement(const std::string& word) const;

 private:
  std::vector<std::string> _words;
  bool _isFileName = false;
  std::size_t _kept = 0;  // so many bytes of the last word stay as they were typed
  char _quote = '\0';     // the one that is open, in which the rest goes
};

}  // namespace tools

#endif  // TOOLS_COMMON_SHELL_LINE_H
