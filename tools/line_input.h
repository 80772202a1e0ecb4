// line_input.h: reads rows line by line, each line as soon as it is complete.
#ifndef TOOLS_LINE_INPUT_H
#define TOOLS_LINE_INPUT_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "tools/common/failure.h"

namespace tools {

// The longest row that is taken in, so that input without line ends cannot eat the memory.
constexpr std::size_t maxRowBytes = 1048576;

// A line that is no row, or no part of one: a Failure (EX_DATAERR) that names the input and the
// line. Whoever does not let it end the input may read on: what comes next is behind it.
class RefusedLine : public Failure {
 public:
  RefusedLine(const std::string& input, long number, const std::string& reason);
  long number() const { return _number; }
  const std::string& reason() const { return _reason; }

 private:
  long _number;
  std::string _reason;
};

class LineInput {
 public:
  // Called before each read; returns when the descriptor can be read, or throws to end the input.
  using WaitForInput = std::function<void(int descriptor)>;
  // Stores what is there, at least a byte, and returns how much; 0 at the end. May throw.
  using Read = std::function<std::size_t(char* bytes, std::size_t room)>;

  // Opens the file, or takes standard input for "-". Throws a Failure (EX_NOINPUT).
  LineInput(const std::string& path, WaitForInput waitForInput);
  // `name` is for errors.
  LineInput(std::string name, Read read);

  // Stores the next line with its line end, which the last line may lack. A byte order mark at the
  // very beginning is left out. Returns false at the end. Throws RefusedLine for a line over
  // maxRowBytes, a Failure (EX_NOINPUT) when a file cannot be read, and what the wait or the read
  // throws.
  bool next(std::string* line);

  // The number of the line that next() gave last, from 1.
  long lineNumber() const { return _lineNumber; }

  // Throws RefusedLine.
  [[noreturn]] void refuse(long lineNumber, const std::string& reason) const;

 private:
  bool findEnd(std::size_t* end);
  bool skipRest();
  bool readMore();

  std::string _name;
  Read _read;
  long _lineNumber = 0;
  std::string _buffer;        // what was read and not yet given out
  std::size_t _searched = 0;  // bytes of it that hold no line end
  bool _isSkipping = false;   // what is left of a line that was too long
};

}  // namespace tools

#endif  // TOOLS_LINE_INPUT_H
