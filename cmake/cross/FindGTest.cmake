# Builds GoogleTest for another architecture from the sources in Debian's package googletest. The libraries in
# libgtest-dev are for this machine only.
if(NOT TARGET GTest::gmock_main)
  set(BUILD_GMOCK ON)
  set(INSTALL_GTEST OFF)
  set(our_flags "${CMAKE_CXX_FLAGS}")
  string(APPEND CMAKE_CXX_FLAGS " -w")  # no warnings about code that is not ours
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  set(CMAKE_CXX_FLAGS "${our_flags}")
endif()
set(GTest_FOUND ON)
