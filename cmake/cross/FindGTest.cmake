# GoogleTest for another machine: built from the sources that Debian's package installs, as libgtest-dev holds it for
# this machine only.
if(NOT TARGET GTest::gmock_main)
  set(BUILD_GMOCK ON)
  set(INSTALL_GTEST OFF)
  set(our_flags "${CMAKE_CXX_FLAGS}")
  string(APPEND CMAKE_CXX_FLAGS " -w")  # its warnings are not ours
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  set(CMAKE_CXX_FLAGS "${our_flags}")
endif()
set(GTest_FOUND ON)
