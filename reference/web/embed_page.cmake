# cmake -D FOLDER=... -D OUTPUT=... -P embed_page.cmake: writes a C++ header with the files of the
# folder, as bytes.
file(GLOB names RELATIVE ${FOLDER} ${FOLDER}/*)
list(SORT names)
set(arrays "")
set(entries "")
set(number 0)
foreach(name IN LISTS names)
  file(READ ${FOLDER}/${name} hex HEX)
  string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${hex}")
  string(APPEND arrays "inline constexpr char kPageFile${number}[] = {${bytes}'\\0'};\n")
  string(APPEND entries
         "    {\"${name}\", {kPageFile${number}, sizeof kPageFile${number} - 1}},\n")
  math(EXPR number "${number} + 1")
endforeach()
file(WRITE ${OUTPUT}
     "#include <array>\n#include <string_view>\n#include <utility>\n\nnamespace reference {\n\n"
     "${arrays}\n"
     "inline constexpr std::array<std::pair<std::string_view, std::string_view>, ${number}>\n"
     "    kPageContents = {{\n${entries}}};\n\n}  // namespace reference\n")
