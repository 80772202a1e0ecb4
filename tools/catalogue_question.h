// catalogue_question.h: asks the DCH what applications it knows, and reads what it answers.
#ifndef TOOLS_CATALOGUE_QUESTION_H
#define TOOLS_CATALOGUE_QUESTION_H

#include <cstddef>
#include <string>
#include <vector>

#include "zordchcl/DCHclient.h"

namespace tools {

using CatalogueQuery = ZORA_Long (DCHclient::*)(char**, const char*, ZORA_Long);

// The text of the answer; `appl` may be empty. Asks through the client and not the exported
// functions: those fail alike for an answer that is empty, one that does not come and a question
// that cannot be sent. Throws a Failure (EX_UNAVAILABLE) when there is no answer.
std::string askCatalogue(CatalogueQuery query, const std::string& appl, short waitSeconds);

struct CatalogueRecords {
  std::vector<std::vector<std::string>> records;
  bool isTruncated = false;
};

// The lines of an answer, each in so many parts; the last one takes what is left, commas included.
CatalogueRecords catalogueRecords(const std::string& answer, std::size_t parts);

}  // namespace tools

#endif  // TOOLS_CATALOGUE_QUESTION_H
