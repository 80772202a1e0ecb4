// test_answers.h: answers that are cut, extended and changed at random, but the same in every run.
#ifndef ZORDCHCL_TEST_ANSWERS_H
#define ZORDCHCL_TEST_ANSWERS_H

#include <cstdint>
#include <iterator>
#include <random>
#include <string>

// The most of a datagram that a read takes.
constexpr std::size_t largestDatagramRead = 8192;

// Numbers of `width` bytes in network order. What lies behind the end of `bytes` is not written,
// and read as zero.
inline std::uint32_t numberAt(const std::string& bytes, std::size_t position, std::size_t width) {
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < width; ++i) {
    const std::size_t at = position + i;
    number = number << 8 | (at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0u);
  }
  return number;
}

inline void putNumber(std::string* bytes, std::size_t position, std::size_t width,
                      std::uint32_t value) {
  for (std::size_t i = 0; i < width && position + i < bytes->size(); ++i)
    (*bytes)[position + i] = static_cast<char>(value >> (8 * (width - 1 - i)));
}

class AnswerGenerator {
 public:
  explicit AnswerGenerator(unsigned seed) : _random(seed) {}

  std::uint32_t below(std::size_t limit) {
    return std::uniform_int_distribution<std::uint32_t>(
        0, static_cast<std::uint32_t>(limit - 1))(_random);
  }

  // A valid answer with up to three changes. Half of them keep a length word that fits, so that
  // their fields are looked at.
  std::string mutated(std::string answer) {
    for (std::uint32_t changes = below(4); changes > 0; --changes) change(&answer);
    if (below(2) == 0) putNumber(&answer, 0, 4, static_cast<std::uint32_t>(answer.size()));
    return answer;
  }

 private:
  void change(std::string* answer) {
    switch (below(8)) {
      case 0:
        answer->resize(below(answer->size() + 1));
        break;
      case 1:
        extend(answer, below(40));
        break;
      case 2:
        putNumber(answer, 0, 4, oddNumber(answer->size()));
        break;
      case 3:
        putNumber(answer, 4, 2, oddType());
        break;
      case 4:
        putNumber(answer, 6, 4, oddNumber(answer->size() < 10 ? 0 : answer->size() - 10));
        break;
      case 5:
        if (!answer->empty()) (*answer)[below(answer->size())] = static_cast<char>(below(256));
        break;
      case 6:  // a field of the second position
        putNumber(answer, 14, 2, oddType());
        putNumber(answer, 16, 4, oddNumber(answer->size() < 20 ? 0 : answer->size() - 20));
        break;
      default:
        if (below(20) == 0) extend(answer, largestDatagramRead - 30 + below(100));
    }
  }

  void extend(std::string* answer, std::size_t count) {
    for (; count > 0; --count) answer->push_back(static_cast<char>(below(256)));
  }

  // Numbers around the one that would be right, and the ends of the ranges.
  std::uint32_t oddNumber(std::size_t right) {
    const std::uint32_t fitting = static_cast<std::uint32_t>(right);
    const std::uint32_t numbers[] = {0,           1,           2,          3,           4,
                                     5,           fitting - 1, fitting,    fitting + 1, 0x7fffffff,
                                     0x80000000u, 0xffffffffu, 0xfffffffau};
    return numbers[below(std::size(numbers))];
  }

  std::uint32_t oddType() {
    const std::uint32_t types[] = {0, 16, 17, 18, 32, 34, 80, 81, 112, 128, 0x7fff, 0x8011, 0xffff};
    return types[below(std::size(types))];
  }

  std::mt19937 _random;
};

#endif  // ZORDCHCL_TEST_ANSWERS_H
