#include "tools/line_input.h"

#include <fcntl.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

namespace tools {
namespace {

constexpr std::size_t readBytes = 65536;
constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

std::string nameOf(const std::string& path) {
  return path == "-" ? "standard input" : path;
}

// A file, or standard input.
class InputFile {
 public:
  explicit InputFile(const std::string& path)
      : _name(nameOf(path)),
        _descriptor(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (_descriptor < 0) fail("open");
  }
  ~InputFile() {
    if (_descriptor != STDIN_FILENO) close(_descriptor);
  }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  int descriptor() const { return _descriptor; }

  std::size_t read(char* bytes, std::size_t room) const {
    ssize_t count = 0;
    do {
      count = ::read(_descriptor, bytes, room);
    } while (count < 0 && errno == EINTR);
    if (count < 0) fail("read");
    return static_cast<std::size_t>(count);
  }

 private:
  [[noreturn]] void fail(const char* what) const {
    throw Failure(EX_NOINPUT, "cannot " + std::string(what) + " " + _name + ": " + strerror(errno));
  }

  std::string _name;
  int _descriptor;
};

LineInput::Read readOf(const std::string& path, LineInput::WaitForInput waitForInput) {
  return [file = std::make_shared<InputFile>(path), wait = std::move(waitForInput)](
             char* bytes, std::size_t room) {
    wait(file->descriptor());
    return file->read(bytes, room);
  };
}

}  // namespace

RefusedLine::RefusedLine(const std::string& input, long number, const std::string& reason)
    : Failure(EX_DATAERR, input + ":" + std::to_string(number) + ": " + reason),
      _number(number),
      _reason(reason) {}

LineInput::LineInput(const std::string& path, WaitForInput waitForInput)
    : LineInput(nameOf(path), readOf(path, std::move(waitForInput))) {}

LineInput::LineInput(std::string name, Read read)
    : _name(std::move(name)), _read(std::move(read)) {}

bool LineInput::next(std::string* line) {
  if (_isSkipping && !skipRest()) return false;
  std::size_t end = 0;
  while (!findEnd(&end)) {
    if (_buffer.size() > maxRowBytes) {
      _isSkipping = true;
      refuse(_lineNumber + 1, "the line is longer than " + std::to_string(maxRowBytes) + " bytes");
    }
    if (!readMore()) break;
  }
  if (_buffer.empty()) return false;
  line->assign(_buffer, 0, end);
  _buffer.erase(0, end);
  _searched = 0;
  if (++_lineNumber == 1 && line->starts_with(byteOrderMark)) line->erase(0, byteOrderMark.size());
  return true;
}

// Stores where the line ends, or what there is of it. Returns whether its end is there.
bool LineInput::findEnd(std::size_t* end) {
  const std::size_t found = _buffer.find('\n', _searched);
  _searched = _buffer.size();
  *end = found == std::string::npos ? _buffer.size() : found + 1;
  return found != std::string::npos;
}

// Returns false at the end of the input.
bool LineInput::skipRest() {
  std::size_t end = 0;
  for (bool isEnd = false; !isEnd;) {
    isEnd = findEnd(&end);
    _buffer.erase(0, end);
    _searched = 0;
    if (!isEnd && !readMore()) return false;
  }
  ++_lineNumber;
  _isSkipping = false;
  return true;
}

void LineInput::refuse(long lineNumber, const std::string& reason) const {
  throw RefusedLine(_name, lineNumber, reason);
}

bool LineInput::readMore() {
  char bytes[readBytes];
  const std::size_t count = _read(bytes, sizeof bytes);
  _buffer.append(bytes, count);
  return count > 0;
}

}  // namespace tools
