#include "tests/faults/temporary_settings.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

constexpr char fileName[] = "product.spec";
constexpr char lockName[] = "product.spec.lock";

}  // namespace

TemporarySettings::TemporarySettings(const std::string& content)
    : _folder(std::filesystem::temp_directory_path() / "settings_XXXXXX") {
  if (mkdtemp(_folder.data()) == nullptr) throw std::runtime_error("no folder for the settings");
  const std::string path = _folder + "/" + fileName;
  std::ofstream(path) << content;
  setenv("ZOR0_PRODUCT_SPEC", path.c_str(), 1);
}

TemporarySettings::~TemporarySettings() {
  setenv("ZOR0_PRODUCT_SPEC", "/dev/null", 1);
  std::filesystem::remove_all(_folder);
}

std::string TemporarySettings::content() const {
  std::ostringstream text;
  text << std::ifstream(_folder + "/" + fileName).rdbuf();
  return text.str();
}

bool TemporarySettings::hasLeftovers() const {
  for (const auto& entry : std::filesystem::directory_iterator(_folder))
    if (entry.path().filename() != fileName && entry.path().filename() != lockName) return true;
  return false;
}
