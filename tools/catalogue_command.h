// catalogue_command.h: `zordc apps`, `zordc attrs` and `zordc help`: what the DCH knows.
#ifndef TOOLS_CATALOGUE_COMMAND_H
#define TOOLS_CATALOGUE_COMMAND_H

#include <string>

namespace tools {

struct CatalogueOptions {
  std::string appl;              // empty: all applications
  std::string format = "table";  // or csv, jsonl
  short waitSeconds = 30;
};

// Each prints the answer and returns the exit status, 0; EX_UNAVAILABLE as a Failure when there was
// no answer, EX_NOINPUT when the DCH knows no such application (or, for help, it has no help text).
int showApplications(const CatalogueOptions& options);
int showAttributes(const CatalogueOptions& options);
int showHelp(const CatalogueOptions& options);

}  // namespace tools

#endif  // TOOLS_CATALOGUE_COMMAND_H
