# Compiler settings: warnings, sanitizers, and the assertions that every build keeps.

# No build defines NDEBUG: the assertions in the schemas' generated setters and in the variant
# library are part of the library's behaviour.
foreach(config IN ITEMS RELEASE RELWITHDEBINFO MINSIZEREL)
  string(REPLACE "-DNDEBUG" "" CMAKE_CXX_FLAGS_${config} "${CMAKE_CXX_FLAGS_${config}}")
  string(REPLACE "-DNDEBUG" "" CMAKE_C_FLAGS_${config} "${CMAKE_C_FLAGS_${config}}")
endforeach()

# Our own targets link this PRIVATE; generated code does not.
add_library(zuskux_warnings INTERFACE)
target_compile_options(
  zuskux_warnings
  INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual
            -Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wformat -Wformat-security -Wundef
            -Werror
            # Checks the annotations of reference/support/mutex.h.
            $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)

set(ZUSKUX_SANITIZERS "" CACHE STRING "Comma-separated sanitizers, for example address,undefined")
if(ZUSKUX_SANITIZERS)
  add_compile_options(-fsanitize=${ZUSKUX_SANITIZERS} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZUSKUX_SANITIZERS})
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # Instrumentation causes false -Wmaybe-uninitialized warnings, and GCC's -Wtsan rejects Asio's
    # fences.
    target_compile_options(zuskux_warnings INTERFACE -Wno-maybe-uninitialized -Wno-tsan)
  endif()
endif()

# What ships is hardened; tests/system/hardening_test.sh checks the result. Sanitizers check more
# and do not combine with hardening. Position-independent code is set for the whole project.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
if(NOT ZUSKUX_SANITIZERS)
  add_compile_options($<$<NOT:$<CONFIG:Debug>>:-fstack-protector-strong>)
  add_compile_definitions($<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
  add_link_options($<$<NOT:$<CONFIG:Debug>>:LINKER:-z,relro,-z,now,-z,noexecstack>)
endif()

# Programs find libraries relative to their own location, so that no file reveals where it was
# built.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

set(ZUSKUX_GROUP_SOURCES OFF CACHE STRING
    "Compile several sources of reference/ together: ON without ccache, ALWAYS, or OFF")
set_property(CACHE ZUSKUX_GROUP_SOURCES PROPERTY STRINGS ON ALWAYS OFF)

# zuskux_group_sources(<target>...): compiles up to eight sources of a target together, so that they
# parse the large headers (protobuf, Asio, JSON) once: a first build takes less than two thirds of the time.
# With ccache, single sources are faster. What ships is always grouped: whether the machine has ccache
# must not change it.
function(zuskux_group_sources)
  if(NOT ZUSKUX_GROUP_SOURCES OR (CCACHE AND NOT ZUSKUX_GROUP_SOURCES STREQUAL ALWAYS))
    return()
  endif()
  set_target_properties(${ARGN} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
  foreach(target IN LISTS ARGN)
    # GCC's warning mistakes each grouped source for a header.
    target_compile_options(${target}
                           PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
  endforeach()
endfunction()
