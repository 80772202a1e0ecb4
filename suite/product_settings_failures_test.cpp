// Product settings when something fails in the middle of an update. Calls that fail are walked
// through in tests/faults/transport_scenarios.cpp; here is what that cannot tell.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <set>
#include <string>

#include "suite/product_settings.h"
#include "tests/support/failing_calls.h"
#include "tests/support/temporary_files.h"

namespace {

class ProductSettingsFailures : public testing::Test {
 protected:
  // The result of an update in which one call fails.
  static int updateWith(const Fault& fault) {
    planFault(fault);
    const UnderTest underTest;
    return ZOR0_UpdateProductSpec(22, "2020");
  }

  void expectUnchanged() const {
    EXPECT_EQ(_file.content(), "22=1919\n");
    EXPECT_EQ(_file.folder().files(), (std::set<std::string>{"product.spec", "product.spec.lock"}));
  }

  const SettingsFile _file{"22=1919\n"};
};

// A file may grow to this size only, while it lives.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &_before);
    const rlimit lowered{bytes, _before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &lowered);
  }
  ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &_before); }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit _before;
};

TEST_F(ProductSettingsFailures, AFileThatCannotBeWrittenWholeIsNotPutInPlace) {
  {
    const FileSizeLimit limit(4);
    EXPECT_EQ(ZOR0_UpdateProductSpec(22, "2020"), 0);
  }
  expectUnchanged();
}

TEST_F(ProductSettingsFailures, AFileThatCannotBeSavedIsNotPutInPlace) {
  EXPECT_EQ(updateWith({SystemCall::synchronize, 1, EIO, EIO}), 0);
  expectUnchanged();
}

// The new file is in place by then.
TEST_F(ProductSettingsFailures, AFolderThatCannotBeSavedDoesNotUndoTheUpdate) {
  EXPECT_EQ(updateWith({SystemCall::synchronize, 2, EIO, EIO}), 1);
  EXPECT_TRUE(faultHappened());
  EXPECT_EQ(_file.content(), "22=2020\n");
}

TEST_F(ProductSettingsFailures, AnErrorLineTellsWhatFailed) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(updateWith({SystemCall::lockMutex, 2, EAGAIN, EAGAIN}), 0);
  const std::string lines = testing::internal::GetCapturedStderr();
  EXPECT_NE(lines.find("Error: product setting 22 cannot be written: Resource temporarily"),
            std::string::npos)
      << lines;
}

}  // namespace
