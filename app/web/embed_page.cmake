# Writes a C++ source that holds every file of the page, so that the program
# serves its page without looking for files at run time.
#
#   cmake -DPAGE_DIR=<folder> -DOUTPUT=<file.cpp> [-DEXTRA_FILES=<path>=<file>|...] -P embed_page.cmake
#
# EXTRA_FILES are files made or installed elsewhere (the font, the PNG icons),
# each served at the path before its "=".

if(NOT PAGE_DIR OR NOT OUTPUT)
  message(FATAL_ERROR "embed_page.cmake needs PAGE_DIR and OUTPUT")
endif()

file(GLOB_RECURSE files RELATIVE ${PAGE_DIR} ${PAGE_DIR}/*)
list(SORT files)
set(sources "")
foreach(file ${files})
  list(APPEND sources "${PAGE_DIR}/${file}")
endforeach()
if(EXTRA_FILES)
  string(REPLACE "|" ";" extras "${EXTRA_FILES}")
  foreach(extra ${extras})
    string(FIND "${extra}" "=" equals)
    string(SUBSTRING "${extra}" 0 ${equals} served)
    math(EXPR after "${equals} + 1")
    string(SUBSTRING "${extra}" ${after} -1 source)
    list(APPEND files "${served}")
    list(APPEND sources "${source}")
  endforeach()
endif()

set(arrays "")
set(entries "")
set(index 0)
foreach(file ${files})
  list(GET sources ${index} source)
  get_filename_component(extension ${file} LAST_EXT)
  string(TOLOWER "${extension}" extension)
  if(extension STREQUAL ".html")
    set(type "text/html; charset=utf-8")
  elseif(extension STREQUAL ".css")
    set(type "text/css; charset=utf-8")
  elseif(extension STREQUAL ".js" OR extension STREQUAL ".mjs")
    set(type "text/javascript; charset=utf-8")
  elseif(extension STREQUAL ".svg")
    set(type "image/svg+xml")
  elseif(extension STREQUAL ".png")
    set(type "image/png")
  elseif(extension STREQUAL ".woff2")
    set(type "font/woff2")
  elseif(extension STREQUAL ".ttf")
    set(type "font/ttf")
  elseif(extension STREQUAL ".woff")
    set(type "font/woff")
  elseif(extension STREQUAL ".json")
    set(type "application/json")
  else()
    message(FATAL_ERROR "page file ${file} has no known content type; add one to embed_page.cmake")
  endif()

  file(READ ${source} hex HEX)
  string(LENGTH "${hex}" digits)
  math(EXPR size "${digits} / 2")
  # An empty file still needs an array of one byte to be valid C++.
  if(size EQUAL 0)
    set(bytes "0x00,")
  else()
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
    # Break the run into lines of 32 bytes; compilers and editors prefer it.
    string(REGEX REPLACE "((0x[0-9a-f][0-9a-f],){32})" "\\1\n  " bytes "${bytes}")
  endif()
  string(APPEND arrays "// ${file}\nconstexpr unsigned char file${index}[] = {\n  ${bytes}\n};\n\n")
  string(APPEND entries "    {\"/${file}\", \"${type}\", bytesOf(file${index}, ${size})},\n")
  math(EXPR index "${index} + 1")
endforeach()

set(source "// Made by embed_page.cmake from the files of the page; do not edit.
#include \"app/web/page_assets.h\"

#include <array>

namespace ferrylink::app {

namespace {

std::string_view bytesOf(const unsigned char* data, size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

${arrays}}  // namespace

std::span<const PageAsset> pageAssets() {
    static const std::array<PageAsset, ${index}> assets{{
${entries}    }};
    return assets;
}

}  // namespace ferrylink::app
")

# Only touch the output when it changes, so that an unchanged page costs no
# rebuild.
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} previous)
  if(previous STREQUAL source)
    return()
  endif()
endif()
file(WRITE ${OUTPUT} "${source}")
