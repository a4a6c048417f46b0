# ofe::ofe as another project uses the library: installed (find_package, see
# install.cmake) or from this source tree (add_subdirectory, FetchContent).
# Either way its headers are included as <ofe/objfile/of_file.h>; the headers
# themselves include each other as "objfile/..." and "support/...", so that
# spelling works too.
#
# In the source tree the headers live in objfile/ and support/ at the top, so
# the build tree gets an include/ofe/ directory that links to them. Only the
# users of ofe::ofe see it: the library, the archiver and the tests compile
# with the same flags as before.
set(OFE_BUILD_INCLUDE_DIR ${PROJECT_BINARY_DIR}/include)
file(MAKE_DIRECTORY ${OFE_BUILD_INCLUDE_DIR}/ofe)
foreach(part objfile support)
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${part} ${OFE_BUILD_INCLUDE_DIR}/ofe/${part} SYMBOLIC)
endforeach()
add_library(ofe_public INTERFACE)
target_link_libraries(ofe_public INTERFACE ofe)
target_include_directories(ofe_public INTERFACE ${OFE_BUILD_INCLUDE_DIR})
add_library(ofe::ofe ALIAS ofe_public)
