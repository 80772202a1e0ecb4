#include "tools/line_input.h"

#include <fcntl.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "tools/common/failure.h"

namespace tools {
namespace {

constexpr std::size_t readBytes = 65536;
constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

}  // namespace

LineInput::LineInput(const std::string& path, WaitForInput waitForInput)
    : _name(path == "-" ? "standard input" : path),
      _waitForInput(std::move(waitForInput)),
      _descriptor(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (_descriptor < 0) failToRead("open");
}

LineInput::~LineInput() {
  if (_descriptor != STDIN_FILENO) close(_descriptor);
}

bool LineInput::next(std::string* line) {
  std::size_t end = std::string::npos;
  while ((end = _buffer.find('\n', _searched)) == std::string::npos) {
    _searched = _buffer.size();
    if (_buffer.size() > maxRowBytes)
      refuse(_lineNumber + 1, "the line is longer than " + std::to_string(maxRowBytes) + " bytes");
    if (!readMore()) break;
  }
  if (_buffer.empty()) return false;
  const std::size_t length = end == std::string::npos ? _buffer.size() : end + 1;
  line->assign(_buffer, 0, length);
  _buffer.erase(0, length);
  _searched = 0;
  if (++_lineNumber == 1 && line->starts_with(byteOrderMark)) line->erase(0, byteOrderMark.size());
  return true;
}

void LineInput::refuse(long lineNumber, const std::string& reason) const {
  throw Failure(EX_DATAERR, _name + ":" + std::to_string(lineNumber) + ": " + reason);
}

bool LineInput::readMore() {
  _waitForInput(_descriptor);
  char bytes[readBytes];
  ssize_t count = 0;
  do {
    count = read(_descriptor, bytes, sizeof bytes);
  } while (count < 0 && errno == EINTR);
  if (count < 0) failToRead("read");
  _buffer.append(bytes, static_cast<std::size_t>(count));
  return count > 0;
}

void LineInput::failToRead(const char* what) const {
  throw Failure(EX_NOINPUT, "cannot " + std::string(what) + " " + _name + ": " + strerror(errno));
}

}  // namespace tools
