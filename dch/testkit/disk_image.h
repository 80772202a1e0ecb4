// disk_image.h: a file system of a test's own, whose loss of power can be played.
#ifndef DCH_TESTKIT_DISK_IMAGE_H
#define DCH_TESTKIT_DISK_IMAGE_H

#include <optional>
#include <string>

namespace dch::testkit {

// From now on what this thread mounts is seen by it, by the threads and processes that it starts,
// and by nobody else, and is gone when they are. Returns why that cannot be, if it cannot.
std::optional<std::string> keepMountsToOneself();

// A file with an ext4 file system, mounted beside it by way of a loop device. What programs have
// written and nobody has synchronised is in the memory of the system, not in the file.
class DiskImage {
 public:
  // Makes the file, which is not there, with an empty file system.
  static void make(const std::string& path);

  // Mounts the file, as it would be after a loss of power: the system does again what its journal
  // says. Throws std::runtime_error with what the system says.
  explicit DiskImage(const std::string& path);
  // Nobody sees it any more. It is given back when nobody uses it.
  ~DiskImage();
  DiskImage(const DiskImage&) = delete;
  DiskImage& operator=(const DiskImage&) = delete;

  const std::string& folder() const { return _folder; }

  // What would be found after a loss of power in this moment, in which nobody writes.
  void copyTo(const std::string& path) const;

 private:
  const std::string _path;
  const std::string _folder;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_DISK_IMAGE_H
