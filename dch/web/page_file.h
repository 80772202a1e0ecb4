// page_file.h: the files of the page, which are part of the program.
#ifndef DCH_WEB_PAGE_FILE_H
#define DCH_WEB_PAGE_FILE_H

#include <string_view>

namespace dch {

struct PageFile {
  std::string_view name;
  std::string_view content;
};

// Null when there is none of this name.
const PageFile* findPageFile(std::string_view name);

// The type of its content, by what its name ends in.
const char* pageFileType(std::string_view name);

// Whether it belongs to the page that asks for the token, which who has none is shown.
bool isForAskingToken(std::string_view name);

}  // namespace dch

#endif  // DCH_WEB_PAGE_FILE_H
