# find_package(zr4410): zr4410::zr4410 is zr4410::shared if BUILD_SHARED_LIBS is on, otherwise zr4410::static.
include(${CMAKE_CURRENT_LIST_DIR}/zr4410Targets.cmake)
if(NOT TARGET zr4410::zr4410)
  if(BUILD_SHARED_LIBS)
    add_library(zr4410::zr4410 ALIAS zr4410::shared)
  else()
    add_library(zr4410::zr4410 ALIAS zr4410::static)
  endif()
endif()
