#include "tests/support/trace_lines.h"

#include <gmock/gmock.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>

#include "tests/support/trace_capture.h"

namespace {

const std::string anyAddress = "{address}";

// The number of characters of an address at `position`, 0 when there is none.
std::size_t addressLength(const std::string& text, std::size_t position) {
  if (text.compare(position, 2, "0x") != 0) return 0;
  std::size_t end = position + 2;
  while (end < text.size() && std::isxdigit(static_cast<unsigned char>(text[end])) != 0) ++end;
  return end - position;
}

bool matches(const std::string& text, const std::string& pattern) {
  std::size_t position = 0;
  for (std::size_t i = 0; i < pattern.size();) {
    if (pattern.compare(i, anyAddress.size(), anyAddress) == 0) {
      const std::size_t length = addressLength(text, position);
      if (length == 0) return false;
      position += length;
      i += anyAddress.size();
    } else if (position == text.size() || text[position++] != pattern[i++]) {
      return false;
    }
  }
  return position == text.size();
}

MATCHER_P(IsLine, pattern, "is " + testing::PrintToString(pattern)) {
  return matches(arg, pattern);
}

}  // namespace

std::string textOf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char text[1024];
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

TraceLine errorLine(std::string text) {
  return {TRC1_CLASS_ERROR, std::move(text)};
}

TraceLine detailLine(std::string text) {
  return {TRC1_CLASS_DETAIL, std::move(text)};
}

TraceLine storageLine(std::string text) {
  return {TRC1_CLASS_STORAGE, std::move(text)};
}

TraceLine flowLine(std::string text) {
  return {TRC1_CLASS_FLOW, std::move(text)};
}

TraceLine entryLine() {
  return {TRC1_CLASS_EVENTS, "<<Entry>>\n"};
}

TraceLine exitLine() {
  return {TRC1_CLASS_EVENTS, "<<Exit>>\n"};
}

TraceLine exitLine(long long value) {
  return {TRC1_CLASS_EVENTS, textOf("<<Exit: %lld>>\n", value)};
}

void expectTrace(const std::string& function, const TracedScenario& scenario) {
  for (const unsigned mask : {0xFFu, 0x01u, 0x02u, 0x04u, 0x10u, 0x40u, 0x80u}) {
    std::vector<testing::Matcher<std::string>> expected;
    std::vector<std::string> actual;
    {
      const TraceCapture trace(textOf("0x%x", mask).c_str());
      for (const TraceLine& line : scenario())
        if ((line.traceClass & mask) != 0) expected.push_back(IsLine(line.text));
      actual = trace.textsOf(function);
    }
    EXPECT_THAT(actual, testing::ElementsAreArray(expected))
        << function << " with class mask " << textOf("0x%x", mask);
  }
}
