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

# The headers that are installed; tests compile each as C11 and as C++17.
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

# No code here is ever unwound, and a build with -g has .debug_frame for debuggers. Unwind tables would be a tenth of
# the tool.
target_compile_options(zr4410_options INTERFACE -fno-asynchronous-unwind-tables)

# Conversions give the same bits on every machine, so fused multiply-add and x87 registers are not used, neither here
# nor in the tests.
add_library(zr4410_arithmetic INTERFACE)
target_compile_options(zr4410_arithmetic INTERFACE -ffp-contract=off)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^i[3-6]86$")
  target_compile_options(zr4410_arithmetic INTERFACE -msse2 -mfpmath=sse)
endif()
target_link_libraries(zr4410_options INTERFACE zr4410_arithmetic)

# Hardening of everything that is installed. _FORTIFY_SOURCE is left to packagers: it replaces syslog with another
# function, so a program that wraps syslog would see no line.
include(CheckCompilerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)
add_library(zr4410_hardening INTERFACE)
foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection)
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

add_library(zr4410_objects OBJECT ${ZR4410_LIBRARY_SOURCES})
set_target_properties(zr4410_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)
target_link_libraries(zr4410_objects PUBLIC zr4410_options)

add_library(zr4410 STATIC $<TARGET_OBJECTS:zr4410_objects>)
target_include_directories(zr4410 INTERFACE ${PROJECT_SOURCE_DIR})
target_link_libraries(zr4410 INTERFACE m zr4410_arithmetic)

add_library(zr4410_shared SHARED $<TARGET_OBJECTS:zr4410_objects>)
set_target_properties(zr4410_shared PROPERTIES OUTPUT_NAME zr4410 VERSION ${PROJECT_VERSION} SOVERSION 0)
target_include_directories(zr4410_shared INTERFACE ${PROJECT_SOURCE_DIR})
zr4410_link_as_c(zr4410_shared)

add_executable(testZR4410 ${PROJECT_SOURCE_DIR}/frontend/testZR4410.cpp ${ZR4410_FRONTEND_SOURCES})
target_link_libraries(testZR4410 PRIVATE zr4410_options zr4410)
set_target_properties(testZR4410 PROPERTIES POSITION_INDEPENDENT_CODE ON)  # PIE
zr4410_link_as_c(testZR4410)

if(ZR4410_INSTALL)
  install(TARGETS testZR4410 zr4410 zr4410_shared)
  foreach(header ${ZR4410_PUBLIC_HEADERS})
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zr4410/${folder})
  endforeach()
  install(FILES ${PROJECT_SOURCE_DIR}/docs/testZR4410.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
