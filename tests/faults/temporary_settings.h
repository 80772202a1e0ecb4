// temporary_settings.h: product settings of a test's own.
#ifndef TESTS_FAULTS_TEMPORARY_SETTINGS_H
#define TESTS_FAULTS_TEMPORARY_SETTINGS_H

#include <string>

// A file with `content` in a folder of its own, which ZOR0_PRODUCT_SPEC names while it lives.
class TemporarySettings {
 public:
  explicit TemporarySettings(const std::string& content);
  ~TemporarySettings();
  TemporarySettings(const TemporarySettings&) = delete;
  TemporarySettings& operator=(const TemporarySettings&) = delete;

  std::string content() const;

  // Whether something else than the settings and their lock is in the folder.
  bool hasLeftovers() const;

 private:
  std::string _folder;
};

#endif  // TESTS_FAULTS_TEMPORARY_SETTINGS_H
