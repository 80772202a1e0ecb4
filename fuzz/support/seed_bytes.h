// seed_bytes.h: what seeds are put together from.
#ifndef FUZZ_SUPPORT_SEED_BYTES_H
#define FUZZ_SUPPORT_SEED_BYTES_H

#include <string>

namespace fuzz {

inline std::string byte(unsigned value) {
  return std::string(1, static_cast<char>(value));
}

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_SEED_BYTES_H
