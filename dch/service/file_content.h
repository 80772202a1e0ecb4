// file_content.h: what is in a file of the operator's.
#ifndef DCH_SERVICE_FILE_CONTENT_H
#define DCH_SERVICE_FILE_CONTENT_H

#include <string>

namespace dch {

// Reads a file of a megabyte at most. What is none, such as a pipe, is refused: nobody knows how
// long it would take to read, and how much it would be. Throws ConfigurationError, which begins
// with the path.
std::string contentOfFile(const std::string& path);

}  // namespace dch

#endif  // DCH_SERVICE_FILE_CONTENT_H
