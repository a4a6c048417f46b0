# cmake --build build --target docs: the API reference of the object-file
# library, made by Doxygen from the headers into build/docs/html, with
# docs/library.md as its front page. The headers' comments are plain "//"
# lines; doxygen_comments.sed hands them to Doxygen as documentation.
find_package(Doxygen QUIET)
if(DOXYGEN_FOUND)
  set(DOXYGEN_PROJECT_NAME "OFE")
  set(DOXYGEN_PROJECT_NUMBER ${ARVELA_VERSION})
  set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/docs)
  set(DOXYGEN_GENERATE_LATEX NO)
  set(DOXYGEN_EXTRACT_ALL YES)
  set(DOXYGEN_RECURSIVE YES)
  set(DOXYGEN_FILE_PATTERNS *.h *.md)
  set(DOXYGEN_QUIET YES)
  set(DOXYGEN_WARN_IF_UNDOCUMENTED NO)
  # Comments quote XML and escapes that Doxygen would take for markup.
  set(DOXYGEN_WARN_LOGFILE ${PROJECT_BINARY_DIR}/docs/warnings.log)
  set(DOXYGEN_USE_MDFILE_AS_MAINPAGE ${PROJECT_SOURCE_DIR}/docs/library.md)
  set(DOXYGEN_STRIP_FROM_PATH ${PROJECT_SOURCE_DIR})
  set(DOXYGEN_FILTER_PATTERNS "*.h=sed -f ${PROJECT_SOURCE_DIR}/cmake/doxygen_comments.sed")
  doxygen_add_docs(docs ${PROJECT_SOURCE_DIR}/objfile ${PROJECT_SOURCE_DIR}/support
    ${PROJECT_SOURCE_DIR}/docs/library.md COMMENT "API reference in ${PROJECT_BINARY_DIR}/docs/html")
else()
  add_custom_target(docs
    COMMAND ${CMAKE_COMMAND} -E echo "docs: Doxygen is not installed; apt-get install doxygen, then configure again"
    COMMAND ${CMAKE_COMMAND} -E false)
endif()
