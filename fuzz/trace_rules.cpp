// Trace rules: what they choose, and what is said about bad ones. Wraps write, by which the tracing
// facility says it.
#include <unistd.h>

#include <cctype>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/support/require.h"
#include "zora/trc1.h"

using namespace fuzz;

namespace {

constinit TRC1_Unit sock{"zordsock", "ZORD410"};
constinit TRC1_Unit channel{"zordchcl", "ZORDC410"};
constinit TRC1_Block ipcRead{"ipcSock::ipcRead", 16, 1, &sock, {}, {}};
constinit TRC1_Block dpOnline{"dp_online", 9, 1, &channel, {}, {}};

int complaints = 0;

unsigned flagsOf(TRC1_Block* block) {
  const TRC1_Scope scope(block);
  unsigned flags = 0;
  for (unsigned bit = 1; bit != 0; bit <<= 1)
    if (scope.on(bit)) flags |= bit;
  return flags;
}

std::string_view trimmed(std::string_view text) {
  const auto isBlank = [](char each) {
    return each == ' ' || (each >= '\t' && each <= '\r' && each != '\v' && each != '\f');
  };
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

// Whether `text` is a 32-bit number, decimal or hexadecimal.
bool isMask(std::string_view text) {
  unsigned base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  }
  std::uint64_t number = 0;
  for (const char each : text) {
    const auto character = static_cast<unsigned char>(each);
    if (base == 16 ? std::isxdigit(character) == 0 : std::isdigit(character) == 0) return false;
    const unsigned digit = std::isdigit(character) != 0
                               ? character - '0'
                               : static_cast<unsigned>(std::tolower(character) - 'a') + 10;
    number = number * base + digit;
    if (number > 0xffffffff) return false;
  }
  return !text.empty();
}

int badRules(std::string_view rules) {
  int count = 0;
  for (std::size_t start = 0; start <= rules.size();) {
    const std::size_t end = std::min(rules.find(',', start), rules.size());
    const std::string_view rule = trimmed(rules.substr(start, end - start));
    const std::size_t equals = rule.rfind('=');
    if (!rule.empty() &&
        !isMask(equals == std::string_view::npos ? rule : trimmed(rule.substr(equals + 1))))
      ++count;
    start = end + 1;
  }
  return count;
}

}  // namespace

extern "C" ssize_t __real_write(int descriptor, const void* bytes, size_t count);
extern "C" ssize_t __wrap_write(int descriptor, const void* bytes, size_t count);
extern "C" ssize_t __wrap_write(int descriptor, const void* bytes, size_t count) {
  if (descriptor != STDERR_FILENO) return __real_write(descriptor, bytes, count);
  const std::string_view line(static_cast<const char*>(bytes), count);
  require(line.starts_with("ZORA_TRACE: rule <") && line.ends_with('\n'), "a line about a rule");
  ++complaints;
  return static_cast<ssize_t>(count);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  std::string rules(reinterpret_cast<const char*>(bytes), count);
  rules = rules.c_str();  // a text ends at its first zero
  complaints = 0;
  TRC1_Configure(rules.c_str());
  require(complaints == badRules(rules), "every bad rule is named once");
  const unsigned readFlags = flagsOf(&ipcRead);
  const unsigned onlineFlags = flagsOf(&dpOnline);

  TRC1_Configure((rules + ",").c_str());
  require(flagsOf(&ipcRead) == readFlags && flagsOf(&dpOnline) == onlineFlags,
          "the same rules choose the same");

  // The last match wins, whatever stands before.
  TRC1_Configure((rules + ",zordsock/*=0x15").c_str());
  require(flagsOf(&ipcRead) == 0x15, "the last rule for a function");
  require(flagsOf(&dpOnline) == onlineFlags, "other functions stay as they were");

  // What stands before counts only where nothing behind matches.
  TRC1_Configure(("7," + rules).c_str());
  require(flagsOf(&ipcRead) == readFlags || (readFlags == 0x80 && flagsOf(&ipcRead) == 7),
          "the first rule fills gaps only");

  TRC1_Configure(nullptr);
  require(flagsOf(&ipcRead) == 0x80 && flagsOf(&dpOnline) == 0x80, "errors alone without rules");
  return 0;
}
