# The tool and the library. They use no exceptions, no RTTI and no heap, and need only libc and libm at run time.

set(ZR4410_LIBRARY_SOURCES
    camera/CalibrationTables.cpp camera/Math.cpp camera/QM2150Blocks.cpp camera/QM2150Parameters.cpp
    camera/QM2150Registers.cpp camera/QM2150Transaction.cpp camera/SnrQM2150Conversions.cpp
    camera/SnrQM2150Names.cpp camera/SnrQM2150Operations.cpp
    link/MsgqClient.cpp link/Relay.cpp
    mcu/McuComm.cpp
    support/Clock.cpp support/Debug.cpp support/Hex.cpp support/Log.cpp support/Settings.cpp support/Signal.cpp
    support/SignalGuard.cpp support/Thread.cpp)
list(TRANSFORM ZR4410_LIBRARY_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/)

# The headers for users of the library; tests compile each as C11 and as C++17.
set(ZR4410_PUBLIC_HEADERS
    camera/Math.h camera/QM2150.h camera/SnrQM2150.h
    link/MsgqClient.h link/Relay.h
    mcu/McuComm.h
    support/CDecls.h support/Clock.h support/Debug.h support/Hex.h support/Results.h support/Settings.h
    support/Signal.h support/Thread.h support/Utils.h)

set(ZR4410_FRONTEND_SOURCES frontend/DeviceActions.cpp frontend/Options.cpp frontend/Reports.cpp)
list(TRANSFORM ZR4410_FRONTEND_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/)

add_library(zr4410_options INTERFACE)
target_include_directories(zr4410_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(zr4410_options INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
  -fvisibility=hidden -ffunction-sections -fdata-sections)

# The C++ library's assertions call a routine of its run-time library, which is not linked. g++ 15 and later enable them
# in builds without optimisation, and some distributions in all builds.
target_compile_options(zr4410_options INTERFACE -U_GLIBCXX_ASSERTIONS -D_GLIBCXX_NO_ASSERTIONS)

# No code here is ever unwound, and a build with -g has .debug_frame for debuggers. Unwind tables would add a
# tenth to the size of the tool.
target_compile_options(zr4410_options INTERFACE -fno-asynchronous-unwind-tables)

# Conversions must give the same bits on every machine and with every compiler. Therefore fused multiply-add and x87
# registers are not used, and pow is not replaced (Clang would call exp2). This applies to the tests too.
add_library(zr4410_arithmetic INTERFACE)
target_compile_options(zr4410_arithmetic INTERFACE -ffp-contract=off -fno-builtin-pow)
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(i[3-6]86|x86_64|AMD64)$")
  target_compile_options(zr4410_arithmetic INTERFACE -msse2 -mfpmath=sse)
endif()
target_link_libraries(zr4410_options INTERFACE zr4410_arithmetic)

# Hardening of everything that is installed. _FORTIFY_SOURCE is left to packagers: it replaces syslog with another
# function, so a program that wraps syslog would see no line.
include(CheckCompilerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)
add_library(zr4410_hardening INTERFACE)
set(flags -fstack-protector-strong -fcf-protection)
# Clang before 16 generates wrong code with it: the stack is adjusted, which changes the flags, between a comparison and
# the use of its result.
if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang" OR CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 16)
  list(APPEND flags -fstack-clash-protection)
endif()
foreach(flag ${flags})
  string(MAKE_C_IDENTIFIER "ZR4410_HAS${flag}" has_flag)
  check_compiler_flag(CXX "-Werror ${flag}" ${has_flag})  # some architectures lack some of them
  if(${has_flag})
    target_compile_options(zr4410_hardening INTERFACE ${flag})
  endif()
endforeach()
target_link_options(zr4410_hardening INTERFACE LINKER:-z,relro,-z,now,-z,noexecstack)
target_link_libraries(zr4410_options INTERFACE zr4410_hardening)

# Linking as C keeps the C++ run-time library out.
function(zr4410_link_as_c target)
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
  target_link_libraries(${target} PRIVATE zr4410_hardening m)
  target_link_options(${target} PRIVATE -Wl,--gc-sections -Wl,--as-needed)
endfunction()

# The public headers as users include them, <zr4410/QM2150.h>: in one folder, with <zr4410/zr4410.h> for all of them.
# The tests and a parent project use this folder, and its headers are installed.
set(ZR4410_INCLUDE ${PROJECT_BINARY_DIR}/include)
set(ZR4410_USER_HEADERS ${ZR4410_INCLUDE}/zr4410/zr4410.h)
set(includes "")
foreach(header ${ZR4410_PUBLIC_HEADERS})
  cmake_path(GET header FILENAME name)
  file(READ ${PROJECT_SOURCE_DIR}/${header} text)
  string(REGEX REPLACE "(camera|link|mcu|support)/([A-Za-z0-9]+\\.h)" "\\2" text "${text}")
  file(CONFIGURE OUTPUT ${ZR4410_INCLUDE}/zr4410/${name} CONTENT "${text}" @ONLY)
  set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${header})
  list(APPEND ZR4410_USER_HEADERS ${ZR4410_INCLUDE}/zr4410/${name})
  string(APPEND includes "#include \"${name}\"\n")
endforeach()
file(CONFIGURE OUTPUT ${ZR4410_INCLUDE}/zr4410/zr4410.h @ONLY CONTENT
  "/* Includes all headers of libzr4410. */\n#ifndef ZR4410_ZR4410_H\n#define ZR4410_ZR4410_H\n\n${includes}\n#endif\n")

add_library(zr4410_objects OBJECT ${ZR4410_LIBRARY_SOURCES})
set_target_properties(zr4410_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)
target_link_libraries(zr4410_objects PUBLIC zr4410_options)

add_library(zr4410_shared SHARED $<TARGET_OBJECTS:zr4410_objects>)
set(exports ${PROJECT_SOURCE_DIR}/cmake/libzr4410.map)
set_target_properties(zr4410_shared PROPERTIES OUTPUT_NAME zr4410 VERSION ${PROJECT_VERSION} SOVERSION 0
  EXPORT_NAME shared LINK_DEPENDS ${exports})
# A routine of the program that happens to have the name of one of ours must not replace it within the library.
target_link_options(zr4410_shared PRIVATE LINKER:--version-script=${exports} LINKER:-Bsymbolic-functions)
zr4410_link_as_c(zr4410_shared)

add_library(zr4410_static STATIC $<TARGET_OBJECTS:zr4410_objects>)
set_target_properties(zr4410_static PROPERTIES OUTPUT_NAME zr4410 EXPORT_NAME static)
target_link_libraries(zr4410_static INTERFACE m)

# Other projects link zr4410::zr4410: the shared library if BUILD_SHARED_LIBS is on, otherwise the static one.
foreach(kind static shared)
  target_include_directories(zr4410_${kind} INTERFACE $<BUILD_INTERFACE:${ZR4410_INCLUDE}>)
  add_library(zr4410::${kind} ALIAS zr4410_${kind})
endforeach()
set(kind static)
if(BUILD_SHARED_LIBS)
  set(kind shared)
endif()
add_library(zr4410::zr4410 ALIAS zr4410_${kind})
add_library(zr4410 ALIAS zr4410_${kind})

add_executable(testZR4410 ${PROJECT_SOURCE_DIR}/frontend/testZR4410.cpp ${ZR4410_FRONTEND_SOURCES})
target_link_libraries(testZR4410 PRIVATE zr4410_options zr4410_static)
set_target_properties(testZR4410 PROPERTIES POSITION_INDEPENDENT_CODE ON)  # PIE
zr4410_link_as_c(testZR4410)

if(ZR4410_INSTALL)
  install(TARGETS testZR4410)
  install(TARGETS zr4410_shared zr4410_static EXPORT zr4410 INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(FILES ${ZR4410_USER_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zr4410)
  include(${PROJECT_SOURCE_DIR}/cmake/Packages.cmake)
  zr4410_install_manual(testZR4410.1)
  zr4410_install_manual(libzr4410.3)
  zr4410_install_completion(testZR4410)
endif()
