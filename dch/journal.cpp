#include "dch/journal.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace dch {

bool isJournal(int descriptor) {
  const char* const journal = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  if (journal == nullptr || fstat(descriptor, &status) != 0) return false;
  return std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino) == journal;
}

namespace {

// The lines, each with its end, and `prefix` in front of each.
std::string withEach(std::string_view prefix, std::string_view lines) {
  std::string text;
  while (!lines.empty()) {
    const std::size_t length = std::min(lines.find('\n'), lines.size());
    text.append(prefix).append(lines.substr(0, length)).push_back('\n');
    lines.remove_prefix(std::min(length + 1, lines.size()));
  }
  return text;
}

}  // namespace

std::string withPriority(Priority priority, std::string_view lines) {
  return withEach('<' + std::to_string(static_cast<int>(priority)) + '>', lines);
}

std::string withName(std::string_view sentences) {
  return withEach("zordchd: ", sentences);
}

void printLines(Priority priority, const std::string& lines) {
  const std::string shown = isJournal(STDERR_FILENO) ? withPriority(priority, lines) : lines;
  std::fputs(shown.c_str(), stderr);
}

}  // namespace dch
