// text_seeds.h: what the fuzzers of readers of texts start from.
#ifndef FUZZ_SUPPORT_TEXT_SEEDS_H
#define FUZZ_SUPPORT_TEXT_SEEDS_H

#include <string>
#include <vector>

namespace fuzz {

// Files as operators write them: of zordchd, and of zordp run.
extern const char configurationText[];
extern const char runText[];

// For the targets settings and subnode, in the form that each takes.
std::vector<std::string> settingsSeeds();
std::vector<std::string> subnodeSeeds();

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_TEXT_SEEDS_H
