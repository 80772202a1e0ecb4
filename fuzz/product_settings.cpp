// The file of product settings: one setting is read, written and read again. Wraps fsync, which
// would wait for a disk.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include "fuzz/support/input.h"
#include "fuzz/support/null_trace.h"
#include "fuzz/support/require.h"
#include "suite/product_settings.h"

using namespace fuzz;

namespace {

// A folder in memory where there is one; it goes with the process.
class Scratch {
 public:
  Scratch() {
    std::string pattern = access("/dev/shm", W_OK) == 0 ? "/dev/shm/" : "/tmp/";
    pattern += "product_settings.XXXXXX";
    require(mkdtemp(pattern.data()) != nullptr, "a folder of our own");
    _folder = pattern;
    setenv("ZOR0_PRODUCT_SPEC", path().c_str(), 1);
  }
  ~Scratch() { std::filesystem::remove_all(_folder); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  std::string path() const { return _folder + "/settings"; }

  void write(std::string_view content) const {
    const int file = open(path().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    require(::write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()),
            "writing the file");
    close(file);
  }

  std::string read() const {
    static char content[1 << 16];  // more than a fuzzer's input
    const int file = open(path().c_str(), O_RDONLY);
    const ssize_t count = ::read(file, content, sizeof content);
    close(file);
    require(count >= 0, "reading the file");
    return std::string(content, static_cast<std::size_t>(count));
  }

  bool hasLeftOver() const { return access((path() + ".new").c_str(), F_OK) == 0; }

 private:
  std::string _folder;
};

// Where the first line of the item stands in the content, its line end not included.
std::optional<std::pair<std::size_t, std::size_t>> lineOf(std::string_view content,
                                                          const std::string& key) {
  for (std::size_t start = 0; start < content.size();) {
    const std::size_t end = std::min(content.find('\n', start), content.size());
    if (content.substr(start, end - start).starts_with(key)) return {{start, end}};
    start = end + 1;
  }
  return std::nullopt;
}

std::string updated(std::string content, const std::string& key, const std::string& text) {
  const auto line = lineOf(content, key);
  if (!line) {
    if (!content.empty() && content.back() != '\n') content += '\n';
    return content + key + text + '\n';
  }
  if (line->second == content.size()) content += '\n';
  return content.replace(line->first, line->second - line->first, key + text);
}

// Texts are handed out up to their first zero byte.
std::string upToZero(std::string_view text) {
  return std::string(text.substr(0, text.find('\0')));
}

}  // namespace

extern "C" int __wrap_fsync(int) {
  return 0;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  traceIntoNothing();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  static const Scratch scratch;
  constexpr int productName = 3;
  Input input(bytes, count);
  const int item = static_cast<int>(input.takeByte()) - 2;
  const std::string text = upToZero(input.takeLine());
  const std::string content(input.takeRest());
  scratch.write(content);

  const std::string key = std::to_string(item) + '=';
  const auto line = lineOf(content, key);
  const char* const before = ZOR0_QueryProductSpec(item);
  if (line) {
    const std::size_t start = line->first + key.size();
    require(before != nullptr && before == upToZero(content.substr(start, line->second - start)),
            "the text of the first line of the item");
  } else {
    require(item == productName ? before == std::string_view("ZORA") : before == nullptr,
            "no text without a line");
  }

  const bool isGood = text.find('\r') == std::string::npos;
  require(ZOR0_UpdateProductSpec(item, text.c_str()) == (isGood ? 1 : 0), "every line is stored");
  require(scratch.read() == (isGood ? updated(content, key, text) : content),
          "the line of the item is replaced and no other");
  require(!scratch.hasLeftOver(), "no file is left behind");
  if (isGood) require(ZOR0_QueryProductSpec(item) == text, "the text that was stored");
  return 0;
}
