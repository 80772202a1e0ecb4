#include "dch/service/file_content.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "dch/net/descriptor.h"
#include "dch/service/configuration_error.h"

namespace dch {

namespace {

constexpr std::size_t mostBytes = 1 << 20;

[[noreturn]] void refuse(const std::string& path, const std::string& reason) {
  throw ConfigurationError(path + ": " + reason);
}

// Without waiting for who writes into a pipe, or for a device.
Descriptor openFile(const std::string& path) {
  Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat found;
  if (!file.isOpen() || fstat(file.get(), &found) != 0) refuse(path, std::strerror(errno));
  if (S_ISDIR(found.st_mode)) refuse(path, std::strerror(EISDIR));
  if (!S_ISREG(found.st_mode)) refuse(path, "it is no file, but a pipe, a socket or a device");
  return file;
}

}  // namespace

std::string contentOfFile(const std::string& path) {
  const Descriptor file = openFile(path);
  std::string content(mostBytes + 1, '\0');
  std::size_t size = 0;
  for (ssize_t count = 1; count != 0 && size < content.size();) {
    count = read(file.get(), content.data() + size, content.size() - size);
    if (count < 0 && errno != EINTR) refuse(path, std::strerror(errno));
    if (count > 0) size += static_cast<std::size_t>(count);
  }
  if (size > mostBytes) refuse(path, "it is larger than a megabyte, more than it may be");
  content.resize(size);
  return content;
}

}  // namespace dch
