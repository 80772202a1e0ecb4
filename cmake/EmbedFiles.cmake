# Run as a script: writes the files FILES (a list) into the header OUTPUT as dch::pageFiles.
set(code "// Made of the files of the page by cmake/EmbedFiles.cmake.\n#include \"dch/web/page_file.h\"\n\nnamespace dch {\n\n")
set(table "")
set(number 0)
foreach(file IN LISTS FILES)
  get_filename_component(name ${file} NAME)
  file(READ ${file} digits HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${digits}")
  string(APPEND code "constexpr unsigned char pageFile${number}[] = {${bytes}0};\n")
  string(APPEND table "    {\"${name}\", {reinterpret_cast<const char*>(pageFile${number}), sizeof pageFile${number} - 1}},\n")
  math(EXPR number "${number} + 1")
endforeach()
string(APPEND code "\nconst PageFile pageFiles[] = {\n${table}};\n\n}  // namespace dch\n")
file(CONFIGURE OUTPUT ${OUTPUT} CONTENT "${code}" @ONLY) # only when it differs
