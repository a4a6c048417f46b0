# Two builds of one commit report the same build code when SOURCE_DATE_EPOCH
# is set at configure time: banner.cpp then codes that instant instead of the
# time it was compiled. Only that one file depends on it.
set(ARVELA_BUILD_EPOCH "$ENV{SOURCE_DATE_EPOCH}")
if(NOT ARVELA_BUILD_EPOCH STREQUAL "")
  string(LENGTH "${ARVELA_BUILD_EPOCH}" digits)
  if(NOT ARVELA_BUILD_EPOCH MATCHES "^[0-9]+$" OR digits GREATER 18)
    message(FATAL_ERROR "SOURCE_DATE_EPOCH is not a decimal number of seconds: '${ARVELA_BUILD_EPOCH}'")
  endif()
  # Leading zeros would make the literal octal.
  string(REGEX REPLACE "^0+([0-9])" "\\1" ARVELA_BUILD_EPOCH "${ARVELA_BUILD_EPOCH}")
  set_property(SOURCE archiver/banner.cpp APPEND PROPERTY
    COMPILE_DEFINITIONS ARVELA_BUILD_EPOCH=${ARVELA_BUILD_EPOCH})
  message(STATUS "Build code from SOURCE_DATE_EPOCH=${ARVELA_BUILD_EPOCH}")
endif()
