#include "tests/faults/scenario.h"

void PrintTo(const Scenario& scenario, std::ostream* out) {
  *out << scenario.name;
}

std::string outcomeOf(int result, ZORA_Long status) {
  return std::to_string(result) + " status " +
         (status == untouched ? "untouched" : std::to_string(status));
}
