// link_seeds.h: what the fuzzers of the link's rules start from.
#ifndef FUZZ_SUPPORT_LINK_SEEDS_H
#define FUZZ_SUPPORT_LINK_SEEDS_H

#include <string>
#include <vector>

namespace fuzz {

// For the targets of these names, in the form that each takes.
std::vector<std::string> windowSeeds();
std::vector<std::string> incomingSeeds();
std::vector<std::string> watchSeeds();
std::vector<std::string> handleSeeds();
std::vector<std::string> providerSeeds();
std::vector<std::string> copiesSeeds();

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_LINK_SEEDS_H
