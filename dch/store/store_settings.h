// store_settings.h: what the operator chooses about what is kept.
#ifndef DCH_STORE_STORE_SETTINGS_H
#define DCH_STORE_STORE_SETTINGS_H

#include <cstdint>

namespace dch {

// What a change survives besides the end of the process at any instruction: nothing, or the loss of
// power.
enum class Durability { process, power };

// Rows are kept for so many days, and as long as what the file uses is not larger.
struct RetentionLimits {
  std::int64_t days = 30;
  std::int64_t megabytes = 1'024;  // of 1,048,576 bytes

  bool operator==(const RetentionLimits&) const = default;
};

}  // namespace dch

#endif  // DCH_STORE_STORE_SETTINGS_H
