// Product settings when something fails in the middle of an update.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "suite/product_settings.h"
#include "tests/support/failing_calls.h"

namespace {

// The settings of this test, in a folder of their own.
class ProductSettingsFailures : public testing::Test {
 protected:
  ProductSettingsFailures() {
    if (mkdtemp(_folder.data()) == nullptr) std::abort();
    setenv("ZOR0_PRODUCT_SPEC", path().c_str(), 1);
    std::ofstream(path()) << "22=1919\n";
  }
  ~ProductSettingsFailures() override { std::filesystem::remove_all(_folder); }

  std::string path() const { return _folder + "/product.spec"; }

  std::string content() const {
    std::ostringstream text;
    text << std::ifstream(path()).rdbuf();
    return text.str();
  }

  std::set<std::string> files() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(_folder))
      names.insert(entry.path().filename());
    return names;
  }

  // The result of an update in which one call fails.
  static int updateWith(const Fault& fault) {
    planFault(fault);
    const UnderTest underTest;
    return ZOR0_UpdateProductSpec(22, "2020");
  }

  void expectUnchanged() const {
    EXPECT_EQ(content(), "22=1919\n");
    EXPECT_EQ(files(), (std::set<std::string>{"product.spec", "product.spec.lock"}));
  }

 private:
  std::string _folder = testing::TempDir() + "product_settings_XXXXXX";
};

TEST_F(ProductSettingsFailures, AFileThatCannotBePutInPlaceLeavesNothingBehind) {
  EXPECT_EQ(updateWith({SystemCall::rename, 1, ENOSPC, ENOSPC}), 0);
  expectUnchanged();
}

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
  EXPECT_EQ(content(), "22=2020\n");
}

TEST_F(ProductSettingsFailures, AnUpdateIsNotDoneWhenItIsRefusedForWantOfMemory) {
  int refused = 0;
  for (int number = 1;; ++number) {
    const int result = updateWith({SystemCall::memory, number, ENOMEM, ENOMEM});
    if (!faultHappened()) break;
    if (result == 0) {
      ++refused;
      EXPECT_EQ(content(), "22=1919\n") << "allocation " << number;
    }
    std::ofstream(path()) << "22=1919\n";
  }
  EXPECT_GT(refused, 3);
}

TEST_F(ProductSettingsFailures, AQuestionHasItsWholeAnswerOrNoneForWantOfMemory) {
  const std::string longName(100, 'Z');
  std::ofstream(path()) << "3=" << longName << "\n";
  int unanswered = 0;
  for (int number = 1;; ++number) {
    planFault({SystemCall::memory, number, ENOMEM, ENOMEM});
    const char* text = nullptr;
    {
      const UnderTest underTest;
      text = ZOR0_QueryProductSpec(3);
    }
    if (!faultHappened()) break;
    if (text == nullptr)
      ++unanswered;
    else
      EXPECT_EQ(text, longName) << "allocation " << number;
  }
  EXPECT_GT(unanswered, 0);
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
