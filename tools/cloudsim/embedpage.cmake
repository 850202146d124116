# Makes one document of the page's files, and a source file that holds it.
# cmake -DPAGE_DIR=… -DOUTPUT=… -P embedpage.cmake
file(READ ${PAGE_DIR}/index.html page)
file(READ ${PAGE_DIR}/page.css css)
file(READ ${PAGE_DIR}/page.js js)
foreach(marker "<!-- page.css -->" "<!-- page.js -->")
  if(NOT page MATCHES "${marker}")
    message(FATAL_ERROR "index.html lacks the line ${marker}")
  endif()
endforeach()
string(REPLACE "<!-- page.css -->" "<style>\n${css}</style>" page "${page}")
string(REPLACE "<!-- page.js -->" "<script>\n${js}</script>" page "${page}")

file(WRITE ${OUTPUT}.html "${page}")
file(READ ${OUTPUT}.html bytes HEX)
file(REMOVE ${OUTPUT}.html)
string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${bytes}")
file(WRITE ${OUTPUT} "#include \"page.h\"\n\nstd::string_view pageHtml()\n{\n"
  "    static const char bytes[] = {${bytes}};\n"
  "    return std::string_view(bytes, sizeof bytes);\n}\n")
