#include "tests/support/trace_lines.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>

#include "tests/support/process.h"
#include "tests/support/trace_capture.h"

namespace {

// The number of characters of an address at `position`, 0 when there is none.
std::size_t addressLength(const std::string& text, std::size_t position) {
  if (text.compare(position, 2, "0x") != 0) return 0;
  std::size_t end = position + 2;
  while (end < text.size() && std::isxdigit(static_cast<unsigned char>(text[end])) != 0) ++end;
  return end - position;
}

// The same for a decimal number.
std::size_t numberLength(const std::string& text, std::size_t position) {
  const std::size_t signLength = position < text.size() && text[position] == '-' ? 1 : 0;
  std::size_t end = position + signLength;
  while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) != 0) ++end;
  return end - position > signLength ? end - position : 0;
}

struct Placeholder {
  std::string name;
  std::size_t (*length)(const std::string& text, std::size_t position);
};

const Placeholder placeholders[] = {{"{address}", addressLength}, {"{number}", numberLength}};

const Placeholder* placeholderAt(const std::string& pattern, std::size_t position) {
  for (const Placeholder& placeholder : placeholders)
    if (pattern.compare(position, placeholder.name.size(), placeholder.name) == 0)
      return &placeholder;
  return nullptr;
}

bool matches(const std::string& text, const std::string& pattern) {
  std::size_t position = 0;
  for (std::size_t i = 0; i < pattern.size();) {
    if (const Placeholder* const placeholder = placeholderAt(pattern, i)) {
      const std::size_t length = placeholder->length(text, position);
      if (length == 0) return false;
      position += length;
      i += placeholder->name.size();
    } else if (position == text.size() || text[position++] != pattern[i++]) {
      return false;
    }
  }
  return position == text.size();
}

constexpr unsigned allClasses = 0xFF;
constexpr unsigned singleClasses[] = {0x01, 0x02, 0x04, 0x10, 0x40, 0x80};

MATCHER_P(IsLine, pattern, "is " + testing::PrintToString(pattern)) {
  return matches(arg, pattern);
}

std::vector<testing::Matcher<std::string>> matchersOf(const Lines& lines, unsigned mask) {
  std::vector<testing::Matcher<std::string>> matchers;
  for (const TraceLine& line : lines)
    if ((line.traceClass & mask) != 0) matchers.push_back(IsLine(line.text));
  return matchers;
}

void expectTraceWith(unsigned mask, const std::string& function, const TracedScenario& scenario) {
  std::vector<testing::Matcher<std::string>> expected;
  std::vector<std::string> actual;
  {
    const TraceCapture trace(textOf("0x%x", mask).c_str());
    expected = matchersOf(scenario(), mask);
    actual = trace.textsOf(function);
  }
  EXPECT_THAT(actual, testing::ElementsAreArray(expected))
      << function << " with class mask " << textOf("0x%x", mask);
}

// Sends the texts of the function in `context` to the parent, which reads standard output.
void sendToParent(void* context, const TRC1_Record& record) {
  if (*static_cast<const std::string*>(context) != record.function) return;
  const std::string text = std::string(record.text, record.textLength) + '\0';
  EXPECT_EQ(write(STDOUT_FILENO, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

std::vector<std::string> textsIn(const std::string& output) {
  std::vector<std::string> texts;
  std::size_t start = 0;
  for (std::size_t end; (end = output.find('\0', start)) != std::string::npos; start = end + 1)
    texts.push_back(output.substr(start, end - start));
  return texts;
}

void expectTraceAndExitWith(unsigned mask, const std::string& function,
                            const std::function<void()>& scenario, const Lines& lines) {
  const ProcessResult child = runInChild([&] {
    TRC1_SetSink(sendToParent, const_cast<std::string*>(&function));
    TRC1_Configure(textOf("0x%x", mask).c_str());
    scenario();
    return 0;
  });
  EXPECT_EQ(child.exitStatus, 1) << child.standardError;
  EXPECT_THAT(textsIn(child.standardOutput), testing::ElementsAreArray(matchersOf(lines, mask)))
      << function << " with class mask " << textOf("0x%x", mask);
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

TraceLine eventLine(std::string text) {
  return {TRC1_CLASS_EVENTS, std::move(text)};
}

TraceLine dumpLine(std::string text) {
  return {TRC1_CLASS_DUMP, std::move(text)};
}

TraceLine entryLine() {
  return eventLine("<<Entry>>\n");
}

TraceLine exitLine() {
  return eventLine("<<Exit>>\n");
}

TraceLine exitLine(long long value) {
  return eventLine(textOf("<<Exit: %lld>>\n", value));
}

void expectTrace(const std::string& function, const TracedScenario& scenario) {
  expectTraceWith(allClasses, function, scenario);
  for (const unsigned mask : singleClasses) expectTraceWith(mask, function, scenario);
}

void expectTraceAndExit(const std::string& function, const std::function<void()>& scenario,
                        const Lines& lines) {
  expectTraceAndExitWith(allClasses, function, scenario, lines);
  for (const unsigned mask : singleClasses) expectTraceAndExitWith(mask, function, scenario, lines);
  expectTraceAndExitWith(0, function, scenario, lines);
}
