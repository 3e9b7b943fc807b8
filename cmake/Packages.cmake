# How other projects find the installed library: with find_package(zr4410) and with pkg-config. Both work in any prefix.
include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/zr4410)
install(EXPORT zr4410 NAMESPACE zr4410:: FILE zr4410Targets.cmake DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zr4410ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_SOURCE_DIR}/cmake/zr4410Config.cmake ${PROJECT_BINARY_DIR}/zr4410ConfigVersion.cmake
        DESTINATION ${package_folder})

file(RELATIVE_PATH prefix_folder "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" prefix_folder "${prefix_folder}")
file(RELATIVE_PATH library_folder "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_LIBDIR}")
file(RELATIVE_PATH include_folder "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/zr4410.pc.in ${PROJECT_BINARY_DIR}/zr4410.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zr4410.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
