#include "dch/store/file_place.h"

#include <sys/stat.h>

#include <cerrno>

namespace dch {

FilePlace::FilePlace(const std::string& path) {
  struct stat file;
  if (stat(path.c_str(), &file) != 0) return;
  _path = path;
  _device = file.st_dev;
  _inode = file.st_ino;
}

bool FilePlace::isLost() const {
  if (_path.empty()) return false;
  struct stat file;
  if (stat(_path.c_str(), &file) != 0) return errno == ENOENT || errno == ENOTDIR;
  return file.st_dev != _device || file.st_ino != _inode;
}

}  // namespace dch
