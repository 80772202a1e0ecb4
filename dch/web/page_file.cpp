#include "dch/web/page_file.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "dch/web/page_files.h"

namespace dch {

namespace {

constexpr std::pair<std::string_view, const char*> types[] = {
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".svg", "image/svg+xml"},
};

}  // namespace

const PageFile* findPageFile(std::string_view name) {
  const auto* const found = std::find_if(std::begin(pageFiles), std::end(pageFiles),
                                         [&](const PageFile& each) { return each.name == name; });
  return found != std::end(pageFiles) ? found : nullptr;
}

const char* pageFileType(std::string_view name) {
  for (const auto& [end, type] : types)
    if (name.ends_with(end)) return type;
  return "application/octet-stream";
}

bool isForAskingToken(std::string_view name) {
  return name.starts_with("login.");
}

}  // namespace dch
