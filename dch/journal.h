// journal.h: lines for whoever runs the server, as systemd's journal takes them.
#ifndef DCH_JOURNAL_H
#define DCH_JOURNAL_H

#include <string>
#include <string_view>

#include "dch/core/log.h"

namespace dch {

// Whether what is written to `descriptor` goes to the journal, which systemd says in
// JOURNAL_STREAM.
bool isJournal(int descriptor);

// Lines, with their ends, each with its priority in front. Throws std::bad_alloc.
std::string withPriority(Priority priority, std::string_view lines);

// Sentences, a line each, as lines that begin with the program's name. Throws std::bad_alloc.
std::string withName(std::string_view sentences);

// Writes lines, with their ends, on standard error, with the priority where that is the journal:
// for when there is no log yet. Waits until they are written.
void printLines(Priority priority, const std::string& lines);

}  // namespace dch

#endif  // DCH_JOURNAL_H
