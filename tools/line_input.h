// line_input.h: reads a file or a pipe line by line, each line as soon as it is complete.
#ifndef TOOLS_LINE_INPUT_H
#define TOOLS_LINE_INPUT_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace tools {

// The longest row that is taken in, so that input without line ends cannot eat the memory.
constexpr std::size_t maxRowBytes = 1048576;

class LineInput {
 public:
  // Called before each read; returns when the descriptor can be read, or throws to end the input.
  using WaitForInput = std::function<void(int descriptor)>;

  // Opens the file, or takes standard input for "-". Throws a Failure (EX_NOINPUT).
  LineInput(const std::string& path, WaitForInput waitForInput);
  ~LineInput();
  LineInput(const LineInput&) = delete;
  LineInput& operator=(const LineInput&) = delete;

  // Stores the next line with its line end, which the last line may lack. A byte order mark at the
  // very beginning is left out. Returns false at the end. Throws a Failure: EX_NOINPUT when the
  // input cannot be read, EX_DATAERR for a line over maxRowBytes. Also throws what the wait throws.
  bool next(std::string* line);

  // The number of the line that next() gave last, from 1.
  long lineNumber() const { return _lineNumber; }

  // Throws a Failure (EX_DATAERR) that names the input, the line and the reason.
  [[noreturn]] void refuse(long lineNumber, const std::string& reason) const;

 private:
  bool readMore();
  [[noreturn]] void failToRead(const char* what) const;

  std::string _name;
  WaitForInput _waitForInput;
  int _descriptor;
  long _lineNumber = 0;
  std::string _buffer;        // what was read and not yet given out
  std::size_t _searched = 0;  // bytes of it that hold no line end
};

}  // namespace tools

#endif  // TOOLS_LINE_INPUT_H
