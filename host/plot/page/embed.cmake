# Writes the source file `result` with the contents of the files `sources`: page.html and page.css,
# and, if the plotting library is there, its style, its script and its licence. The files `scripts`
# become one script.

set(names html css uplot_css uplot_script uplot_licence)
set(arrays "")
set(members "")

macro(embed name bytes)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," array "${bytes}")
  string(APPEND arrays "constexpr unsigned char k_${name}[] = {${array}};\n")
  string(APPEND members "    textOf(k_${name}),\n")
endmacro()

foreach(source name IN ZIP_LISTS sources names)
  if(source)
    file(READ ${source} bytes HEX)
    embed(${name} "${bytes}")
  endif()
endforeach()
set(all "")
foreach(script IN LISTS scripts)
  file(READ ${script} bytes HEX)
  string(APPEND all ${bytes})
endforeach()
embed(script "${all}")

list(LENGTH sources count)
if(count EQUAL 5)
  set(answer "&kFiles")
else()
  set(answer "nullptr")
  set(members "")
  set(arrays "")
endif()

set(text "// Made by host/plot/page/embed.cmake.
#include \"host/plot/page_files.h\"

#include <cstddef>

namespace tev::host {
namespace {

template <std::size_t size>
[[maybe_unused]] std::string_view textOf(const unsigned char (&bytes)[size]) {
  return {reinterpret_cast<const char*>(bytes), size};
}

${arrays}
}  // namespace

const PageFiles* pageFiles() {
  [[maybe_unused]] static const PageFiles kFiles{
${members}  };
  return ${answer};
}

}  // namespace tev::host
")
file(WRITE ${result} "${text}")
