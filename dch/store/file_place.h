// file_place.h: whether a file that is open is still where it was opened.
#ifndef DCH_STORE_FILE_PLACE_H
#define DCH_STORE_FILE_PLACE_H

#include <sys/types.h>

#include <array>
#include <string>

namespace dch {

class FilePlace {
 public:
  FilePlace() = default;
  // The file at `path`, which has just been opened. Without one it has no place to lose.
  explicit FilePlace(const std::string& path);

  const std::string& path() const { return _path; }

  // Whether there is nothing any more, or another file. What the system cannot tell counts as no
  // loss. May take as long as the disk does.
  bool isLost() const;

 private:
  std::string _path;
  dev_t _device = 0;
  ino_t _inode = 0;
};

// Those of a state file, its log and the index of that.
using StatePlaces = std::array<FilePlace, 3>;

}  // namespace dch

#endif  // DCH_STORE_FILE_PLACE_H
