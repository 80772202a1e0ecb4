// temporary_file.h: a file of a test's own.
#ifndef TOOLS_TESTKIT_TEMPORARY_FILE_H
#define TOOLS_TESTKIT_TEMPORARY_FILE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tools {

// Holds `content`; goes away with the object.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string_view content) : _path(testing::TempDir() + "zordXXXXXX") {
    const int descriptor = mkstemp(_path.data());
    if (descriptor < 0) throw std::runtime_error("mkstemp failed");
    close(descriptor);
    std::ofstream(_path, std::ios::binary) << content;
  }
  ~TemporaryFile() { unlink(_path.c_str()); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  const std::string& path() const { return _path; }

 private:
  std::string _path;
};

}  // namespace tools

#endif  // TOOLS_TESTKIT_TEMPORARY_FILE_H
