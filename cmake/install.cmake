# Installation and the Debian package: the tools with their manual pages, and
# the object-file library as another project uses it (libofe.a, its headers
# under include/ofe with their relative paths kept, a CMake package giving
# ofe::ofe, and ofe.pc). Users include <ofe/objfile/of_file.h>, so include/
# is on their include path; include/ofe is too, because the headers include
# each other as "objfile/..." and "support/...".
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The version the banner prints is the package's version too.
file(STRINGS ${PROJECT_SOURCE_DIR}/archiver/banner.h version_lines
  REGEX "VERSION_(MAJOR|MINOR|PATCH) = [0-9]+;")
foreach(part MAJOR MINOR PATCH)
  string(REGEX MATCH "VERSION_${part} = ([0-9]+)" _ "${version_lines}")
  set(ARVELA_VERSION_${part} ${CMAKE_MATCH_1})
endforeach()
set(ARVELA_VERSION ${ARVELA_VERSION_MAJOR}.${ARVELA_VERSION_MINOR}.${ARVELA_VERSION_PATCH})

# Each tool that this tree builds, with its manual page. Decided once the
# whole top-level file has been read, so that it does not matter where the
# tools' targets are defined.
function(install_tools)
  foreach(tool arvela ofecopy ofedump)
    if(TARGET ${tool})
      install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
      install(FILES ${PROJECT_SOURCE_DIR}/man/${tool}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    endif()
  endforeach()
endfunction()
cmake_language(DEFER DIRECTORY ${PROJECT_SOURCE_DIR} CALL install_tools)

set(OFE_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/ofe)
set(OFE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ofe)
install(TARGETS ofe EXPORT ofeTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${OFE_INCLUDE_DIR})
# The headers include each other as "support/..." and "objfile/...". The
# archiver's support is not part of the library.
set(ARCHIVER_SUPPORT_HEADERS "")
foreach(name ${ARCHIVER_SUPPORT})
  list(APPEND ARCHIVER_SUPPORT_HEADERS PATTERN ${name}.h EXCLUDE)
endforeach()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/support ${PROJECT_SOURCE_DIR}/objfile
  DESTINATION ${OFE_INCLUDE_DIR} FILES_MATCHING PATTERN "*.h" ${ARCHIVER_SUPPORT_HEADERS})
install(EXPORT ofeTargets NAMESPACE ofe:: DESTINATION ${OFE_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ofeConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ofeConfig.cmake INSTALL_DESTINATION ${OFE_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ofeConfigVersion.cmake
  VERSION ${ARVELA_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ofeConfig.cmake ${PROJECT_BINARY_DIR}/ofeConfigVersion.cmake
  DESTINATION ${OFE_CMAKE_DIR})

# The prefix is chosen when installing (cmake --install --prefix), so the
# pkg-config file finds it relative to itself.
file(RELATIVE_PATH OFE_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" OFE_PC_TO_PREFIX "${OFE_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/ofe.pc.in ${PROJECT_BINARY_DIR}/ofe.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ofe.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# A project that adds this tree as a subproject packages itself.
if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()

# cpack -G DEB: one package with the tools, their manual pages and the library.
set(CPACK_PACKAGE_NAME arvela)
set(CPACK_PACKAGE_VERSION ${ARVELA_VERSION})
set(CPACK_PACKAGE_VENDOR "QV")
set(CPACK_PACKAGE_CONTACT "QV tool chain team <toolchain@qv.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Object-library archiver of the Vela tool chain, with the OFE object-file library")
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
