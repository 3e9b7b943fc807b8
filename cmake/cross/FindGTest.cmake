# GoogleTest for another machine: built from the sources that Debian's package installs, as libgtest-dev holds it for
# this machine only.
set(BUILD_GMOCK ON)
set(INSTALL_GTEST OFF)
set(cmake_saved_cxx_flags "${CMAKE_CXX_FLAGS}")
string(APPEND CMAKE_CXX_FLAGS " -w")  # its warnings are not ours
add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
set(CMAKE_CXX_FLAGS "${cmake_saved_cxx_flags}")
set(GTest_FOUND ON)
