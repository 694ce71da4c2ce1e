# Writes FILES, the page that the receiver serves, as text into the C++ source OUT.
set(types_html "text/html; charset=utf-8")
set(types_css "text/css; charset=utf-8")
set(types_js "text/javascript; charset=utf-8")
set(rows)
foreach(file ${FILES})
  cmake_path(GET file FILENAME name)
  cmake_path(GET file EXTENSION LAST_ONLY extension)
  string(SUBSTRING ${extension} 1 -1 extension)
  set(path "/${name}")
  if(name STREQUAL "index.html")
    set(path "/")
  endif()
  file(READ ${file} text)
  string(APPEND rows "    {\"${path}\", \"${types_${extension}}\", R\"veldrift(${text})veldrift\"},\n")
endforeach()
file(WRITE ${OUT} "// Made from tools/phone/web_page by cmake/EmbedPage.cmake.
#include \"web_page.h\"

namespace Veldrift {

namespace {

constexpr WebPage kPages[] = {
${rows}};

}  // namespace

const WebPage* FindWebPage(std::string_view path) {
  for (const WebPage& page : kPages) {
    if (page.path == path) return &page;
  }
  return nullptr;
}

}  // namespace Veldrift
")
