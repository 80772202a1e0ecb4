#include "dch/testkit/disk_image.h"

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/support/process.h"
#include "tests/support/temporary_files.h"

namespace dch::testkit {

namespace {

constexpr std::uintmax_t imageBytes = 64 << 20;

// The system is to write nothing of its own accord: what is not asked for stays away, as it may.
constexpr char mountOptions[] = "loop,noatime,commit=900";

void run(const std::string& program, const Process::Arguments& arguments) {
  const ProcessResult result = Process(program, arguments).finish();
  if (result.exitStatus == Process::notFound) throw std::runtime_error("there is no " + program);
  if (result.exitStatus != 0) throw std::runtime_error(program + ": " + result.standardError);
}

}  // namespace

std::optional<std::string> keepMountsToOneself() {
  if (unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0)
    return std::nullopt;
  return std::string("mounts of its own: ") + std::strerror(errno);
}

void DiskImage::make(const std::string& path) {
  std::ofstream{path};
  std::filesystem::resize_file(path, imageBytes);
  // Else the system would go on making it when it is mounted.
  run("/sbin/mkfs.ext4", {"-q", "-F", "-E", "lazy_itable_init=0,lazy_journal_init=0", path});
}

DiskImage::DiskImage(const std::string& path) : _path(path), _folder(path + ".mounted") {
  std::filesystem::create_directory(_folder);
  run("/bin/mount", {"-n", "-t", "ext4", "-o", mountOptions, _path, _folder});
}

DiskImage::~DiskImage() {
  umount2(_folder.c_str(), MNT_DETACH);
}

// What the system is writing in this moment is as whole as what it has written when two copies are
// the same.
void DiskImage::copyTo(const std::string& path) const {
  std::string content = contentOf(_path);
  for (std::string before; content != before; content = contentOf(_path)) before.swap(content);
  std::ofstream(path, std::ios::binary) << content;
}

}  // namespace dch::testkit
