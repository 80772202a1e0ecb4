#include "suite/product_settings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "suite/cancellation.h"
#include "suite/osv1.h"
#include "suite/trace_unit.h"

namespace {

constexpr char defaultProductName[] = "ZORA";
constexpr char defaultPath[] = "/var/lib/zord410/product.spec";
constexpr mode_t newFileMode = 0644;

class Descriptor {
 public:
  explicit Descriptor(int descriptor) : _descriptor(descriptor) {}
  ~Descriptor() {
    if (_descriptor >= 0) close(_descriptor);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return _descriptor; }
  bool isOpen() const { return _descriptor >= 0; }

 private:
  const int _descriptor;
};

// The path of the settings file, empty when settings are kept in memory.
std::string settingsPath() {
  const char* configured = OSV1_GetEnv("ZOR0_PRODUCT_SPEC", 0);
  if (configured != nullptr && *configured != '\0') return configured;
  return access(defaultPath, F_OK) == 0 ? defaultPath : "";
}

// ---- Text of the file ------------------------------------------------------------------------

// The line at the start of `text`, its line end included.
std::string_view firstLine(std::string_view text) {
  const std::size_t end = text.find('\n');
  return end == std::string_view::npos ? text : text.substr(0, end + 1);
}

std::string keyOf(int item) {
  return std::to_string(item) + '=';
}

std::optional<std::string> settingIn(std::string_view content, int item) {
  const std::string key = keyOf(item);
  while (!content.empty()) {
    std::string_view line = firstLine(content);
    content.remove_prefix(line.size());
    if (!line.starts_with(key)) continue;
    line.remove_prefix(key.size());
    if (line.ends_with('\n')) line.remove_suffix(1);
    return std::string(line);
  }
  return std::nullopt;
}

// `content` with the first line of the item replaced, or with a new line at the end. Every other
// line stays as it is, whoever wrote it.
std::string withSetting(std::string_view content, int item, const char* text) {
  const std::string key = keyOf(item);
  const std::string newLine = key + text + '\n';
  std::string result;
  bool isReplaced = false;
  while (!content.empty()) {
    const std::string_view line = firstLine(content);
    content.remove_prefix(line.size());
    if (!isReplaced && line.starts_with(key)) {
      result += newLine;
      isReplaced = true;
    } else {
      result += line;
    }
  }
  if (isReplaced) return result;
  if (!result.empty() && result.back() != '\n') result += '\n';
  return result + newLine;
}

// ---- File ------------------------------------------------------------------------------------

// Reads the whole file; one that does not exist is empty. Returns false, with errno, when it
// cannot.
bool readFile(const std::string& path, std::string* content) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.isOpen()) return errno == ENOENT;
  char part[4096];
  for (;;) {
    const ssize_t count = read(file.get(), part, sizeof part);
    if (count == 0) return true;
    if (count > 0)
      content->append(part, static_cast<std::size_t>(count));
    else if (errno != EINTR)
      return false;
  }
}

bool writeWhole(int descriptor, std::string_view content) {
  while (!content.empty()) {
    const ssize_t count = write(descriptor, content.data(), content.size());
    if (count >= 0)
      content.remove_prefix(static_cast<std::size_t>(count));
    else if (errno != EINTR)
      return false;
  }
  return true;
}

// Gives a new file the mode and the owner of the one that it replaces.
bool copyAccess(const std::string& from, int to) {
  struct stat status;
  if (stat(from.c_str(), &status) != 0) return fchmod(to, newFileMode) == 0;
  // Only root may give a file away; for anyone else the owner stays who writes it.
  [[maybe_unused]] const int ignored = fchown(to, status.st_uid, status.st_gid);
  return fchmod(to, status.st_mode & 07777) == 0;
}

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// Removes what was begun, and keeps errno.
bool giveUp(const std::string& newPath) {
  const int error = errno;
  unlink(newPath.c_str());
  errno = error;
  return false;
}

// Puts a new file in the place of `path`; the caller holds the lock. Returns false with errno.
bool replaceFile(const std::string& path, std::string_view content) {
  const std::string newPath = path + ".new";
  // Opened while the update can still fail: without memory, for one.
  const Descriptor folder(open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  unlink(newPath.c_str());  // of a process that died here
  {
    const Descriptor file(
        open(newPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file.isOpen()) return false;
    if (!copyAccess(path, file.get()) || !writeWhole(file.get(), content) || fsync(file.get()) != 0)
      return giveUp(newPath);
  }
  if (rename(newPath.c_str(), path.c_str()) != 0) return giveUp(newPath);
  if (folder.isOpen()) fsync(folder.get());
  return true;
}

// Waits for the lock between processes; it ends with the descriptor. The lock has a file of its own
// because the settings file is another one after each update.
bool lockFile(int descriptor) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  while (fcntl(descriptor, F_SETLKW, &lock) != 0)
    if (errno != EINTR) return false;
  return true;
}

// A link to the settings file stays a link: the file that it leads to is replaced.
std::string withoutLinks(const std::string& path) {
  const std::unique_ptr<char, decltype(&free)> resolved(realpath(path.c_str(), nullptr), free);
  return resolved != nullptr ? resolved.get() : path;
}

// Returns false with errno.
bool updateFile(const std::string& path, int item, const char* text) {
  const Descriptor lock(open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
  std::string content;
  return lock.isOpen() && lockFile(lock.get()) && readFile(path, &content) &&
         replaceFile(path, withSetting(content, item, text));
}

// ---- Store -----------------------------------------------------------------------------------

// Locks between processes do not hold between threads. Never destroyed, as the map.
constinit std::mutex updateMutex;

std::map<int, std::string>& memorySettings() {
  static auto& settings = *new std::map<int, std::string>;
  return settings;
}

std::optional<std::string> query(const TRC1_Scope& trc1Scope, int item) {
  std::optional<std::string> found;
  const std::string path = settingsPath();
  if (path.empty()) {
    const std::lock_guard lock(updateMutex);
    const auto setting = memorySettings().find(item);
    if (setting != memorySettings().end()) found = setting->second;
  } else {
    std::string content;
    if (!readFile(path, &content))
      TRC1_ERROR("Error: reading product settings <%s>, errno=%d\n", path.c_str(), errno);
    else
      found = settingIn(content, item);
  }
  if (!found && item == ZOR0_ITEM_PRODUCT_NAME) found = defaultProductName;
  return found;
}

bool update(const TRC1_Scope& trc1Scope, int item, const char* text) {
  const std::string path = settingsPath();
  const std::lock_guard lock(updateMutex);
  if (path.empty()) {
    memorySettings()[item] = text;
    return true;
  }
  if (updateFile(withoutLinks(path), item, text)) return true;
  TRC1_ERROR("Error: writing product settings <%s>, errno=%d\n", path.c_str(), errno);
  return false;
}

}  // namespace

const char* ZOR0_QueryProductSpec(int item) {
  TRC1_QUIET_FUNCTION("ZOR0_QueryProductSpec");
  const suite::CancellationOff cancellationOff;
  try {
    static thread_local std::map<int, std::string> returnedTexts;
    std::optional<std::string> found = query(trc1Scope, item);
    if (!found) return nullptr;
    std::string& text = returnedTexts[item];
    text = std::move(*found);
    return text.c_str();
  } catch (const std::exception& error) {
    TRC1_ERROR("Error: product setting %d cannot be read: %s\n", item, error.what());
    return nullptr;
  }
}

int ZOR0_UpdateProductSpec(int item, const char* text) {
  TRC1_QUIET_FUNCTION("ZOR0_UpdateProductSpec");
  const suite::CancellationOff cancellationOff;
  if (text == nullptr || std::strpbrk(text, "\r\n") != nullptr) {
    TRC1_ERROR("Error: product setting %d: the text is NULL or holds a line end\n", item);
    return 0;
  }
  try {
    return update(trc1Scope, item, text) ? 1 : 0;
  } catch (const std::exception& error) {
    TRC1_ERROR("Error: product setting %d cannot be written: %s\n", item, error.what());
    return 0;
  }
}
