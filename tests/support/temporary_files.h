// temporary_files.h: folders and files of a test's own, which go away with their object.
#ifndef TESTS_SUPPORT_TEMPORARY_FILES_H
#define TESTS_SUPPORT_TEMPORARY_FILES_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

inline std::string contentOf(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

class TemporaryFolder {
 public:
  TemporaryFolder() : _path(std::filesystem::temp_directory_path() / "zord410_XXXXXX") {
    if (mkdtemp(_path.data()) == nullptr) throw std::runtime_error("no folder for a test");
  }
  ~TemporaryFolder() { std::filesystem::remove_all(_path); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return _path; }

  // The names in it.
  std::set<std::string> files() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(_path))
      names.insert(entry.path().filename());
    return names;
  }

 private:
  std::string _path;
};

class TemporaryFile {
 public:
  explicit TemporaryFile(std::string_view content, const std::string& name = "file")
      : _path(_folder.path() + "/" + name) {
    write(content);
  }

  const std::string& path() const { return _path; }
  const TemporaryFolder& folder() const { return _folder; }

  void write(std::string_view content) const { std::ofstream(_path, std::ios::binary) << content; }
  std::string content() const { return contentOf(_path); }

 private:
  const TemporaryFolder _folder;
  const std::string _path;
};

// The product settings of this process: the lines of their file, which is not there without any.
class SettingsFile : public TemporaryFile {
 public:
  explicit SettingsFile(std::string_view lines = {}) : TemporaryFile(lines, "product.spec") {
    if (lines.empty()) std::filesystem::remove(path());
    setenv("ZOR0_PRODUCT_SPEC", path().c_str(), 1);
  }
  // From now on there are none.
  ~SettingsFile() { setenv("ZOR0_PRODUCT_SPEC", "/dev/null", 1); }
};

#endif  // TESTS_SUPPORT_TEMPORARY_FILES_H
