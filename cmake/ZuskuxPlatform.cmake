# The platform: what the host program and the vendor provide, one folder each.
#
# Each folder defines `platform::<folder>`, the interface headers, which are all that the library
# sees, and a stand-in with the definitions, which goes into host programs. Headers are included as
# "<folder>/<header>.h". A header or schema that a vendor's folder lacks comes from platform/.

# Where to look for headers, the vendor's first.
set(ZUSKUX_PLATFORM_ROOTS ${ZUSKUX_PLATFORM_DIR} ${CMAKE_SOURCE_DIR}/platform)

# The folders that a vendor can replace.
set(ZUSKUX_VENDOR_FOLDERS app_framework hal_schema hal_client interface_ids dest_manager)

# Headers of the stand-ins in platform/. The library does not use them, so they are not installed.
set(ZUSKUX_STANDIN_HEADERS interface_table.h)

# Fails if ZUSKUX_PLATFORM_DIR, or a part of it, would silently be ignored.
function(zuskux_check_vendor_platform)
  if(NOT ZUSKUX_PLATFORM_DIR)
    if(ZUSKUX_VENDOR)
      message(FATAL_ERROR "ZUSKUX_PLATFORM_DIR is not set. Name the vendor's platform with "
                          "-D ZUSKUX_PLATFORM_DIR=FOLDER.")
    endif()
    return()
  endif()
  if(NOT IS_DIRECTORY ${ZUSKUX_PLATFORM_DIR})
    message(FATAL_ERROR "ZUSKUX_PLATFORM_DIR is ${ZUSKUX_PLATFORM_DIR}, which is not a folder. "
                        "Start with a copy of examples/vendor_platform.")
  endif()
  set(replaced OFF)
  foreach(folder IN LISTS ZUSKUX_VENDOR_FOLDERS)
    if(EXISTS ${ZUSKUX_PLATFORM_DIR}/${folder}/CMakeLists.txt)
      set(replaced ON)
    elseif(EXISTS ${ZUSKUX_PLATFORM_DIR}/${folder})
      message(FATAL_ERROR "${ZUSKUX_PLATFORM_DIR}/${folder} has no CMakeLists.txt. Copy the one of "
                          "examples/vendor_platform/${folder} or platform/${folder}.")
    endif()
  endforeach()
  list(JOIN ZUSKUX_VENDOR_FOLDERS ", " known)
  file(GLOB described RELATIVE ${ZUSKUX_PLATFORM_DIR} ${ZUSKUX_PLATFORM_DIR}/*/CMakeLists.txt)
  foreach(file IN LISTS described)
    cmake_path(GET file PARENT_PATH folder)
    if(NOT folder IN_LIST ZUSKUX_VENDOR_FOLDERS)
      message(FATAL_ERROR "${ZUSKUX_PLATFORM_DIR}/${folder} replaces nothing. A platform consists of "
                          "these folders: ${known}.")
    endif()
  endforeach()
  if(NOT replaced)
    message(FATAL_ERROR "${ZUSKUX_PLATFORM_DIR} has none of these folders: ${known}.")
  endif()
endfunction()

# Adds the folder from ZUSKUX_PLATFORM_DIR if there is one of that name, else from platform/.
function(zuskux_add_platform_folder folder)
  set(path ${CMAKE_SOURCE_DIR}/platform/${folder})
  if(folder IN_LIST ZUSKUX_VENDOR_FOLDERS AND EXISTS ${ZUSKUX_PLATFORM_DIR}/${folder}/CMakeLists.txt)
    set(path ${ZUSKUX_PLATFORM_DIR}/${folder})
    file(GLOB defaults RELATIVE ${CMAKE_SOURCE_DIR}/platform/${folder}
         ${CMAKE_SOURCE_DIR}/platform/${folder}/*.h ${CMAKE_SOURCE_DIR}/platform/${folder}/*.proto)
    file(GLOB own RELATIVE ${path} ${path}/*)
    list(REMOVE_ITEM defaults ${own} ${ZUSKUX_STANDIN_HEADERS})
    list(JOIN defaults ", " defaults)
    message(STATUS "Platform: ${folder} from ${path}")
    if(defaults)
      message(STATUS "  and from platform/: ${defaults}")
    endif()
  endif()
  add_subdirectory(${path} ${CMAKE_BINARY_DIR}/platform/${folder})
  get_target_property(type platform::${folder} TYPE)
  if(type STREQUAL INTERFACE_LIBRARY AND NOT TARGET platform_${folder}_standin)
    # The definitions are in a library that the interface names.
    add_library(platform_${folder}_standin INTERFACE)
    target_link_libraries(platform_${folder}_standin INTERFACE platform_${folder})
  endif()
endfunction()

# zuskux_check_arguments(<function> <unknown argument>...): fails if there is any.
function(zuskux_check_arguments function)
  if(ARGN)
    list(JOIN ARGN " " unknown)
    message(FATAL_ERROR "${function} does not take \"${unknown}\"; see cmake/ZuskuxPlatform.cmake.")
  endif()
endfunction()

# zuskux_platform_requires(<package> [VERSION <version>] [COMPONENTS <component>...]
# [PKG_CONFIG <module>...]): finds a CMake package whose imported targets a folder's DEPENDS names.
# find_package(zuskux) finds it again and zuskux.pc requires each <module>, of <version> or later, so
# that host programs build with it too.
#
# A macro, because find_package sets variables for its caller.
macro(zuskux_platform_requires package)
  cmake_parse_arguments(ZUSKUX_REQUIRES "" "VERSION" "COMPONENTS;PKG_CONFIG" ${ARGN})
  zuskux_check_arguments(zuskux_platform_requires ${ZUSKUX_REQUIRES_UNPARSED_ARGUMENTS})
  set(ZUSKUX_REQUIRES_WHAT ${package} ${ZUSKUX_REQUIRES_VERSION})
  if(ZUSKUX_REQUIRES_COMPONENTS)
    list(APPEND ZUSKUX_REQUIRES_WHAT COMPONENTS ${ZUSKUX_REQUIRES_COMPONENTS})
  endif()
  set(CMAKE_FIND_PACKAGE_TARGETS_GLOBAL ON)
  find_package(${ZUSKUX_REQUIRES_WHAT} REQUIRED)
  unset(CMAKE_FIND_PACKAGE_TARGETS_GLOBAL)
  list(JOIN ZUSKUX_REQUIRES_WHAT " " ZUSKUX_REQUIRES_WHAT)
  set_property(GLOBAL APPEND_STRING PROPERTY ZUSKUX_PLATFORM_DEPENDENCIES
                                             "find_dependency(${ZUSKUX_REQUIRES_WHAT})\n")
  if(ZUSKUX_REQUIRES_VERSION)
    # Of a range, the lowest.
    string(REGEX REPLACE "^([0-9.]*[0-9]).*" " >= \\1" ZUSKUX_REQUIRES_VERSION
           ${ZUSKUX_REQUIRES_VERSION})
    list(TRANSFORM ZUSKUX_REQUIRES_PKG_CONFIG APPEND ${ZUSKUX_REQUIRES_VERSION})
  endif()
  set_property(GLOBAL APPEND PROPERTY ZUSKUX_PLATFORM_MODULES ${ZUSKUX_REQUIRES_PKG_CONFIG})
endmacro()

# zuskux_platform_interface(<folder> [DEPENDS <target>...]): defines the interface of the folder.
function(zuskux_platform_interface folder)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "DEPENDS")
  zuskux_check_arguments(zuskux_platform_interface ${ARG_UNPARSED_ARGUMENTS})
  cmake_path(GET CMAKE_CURRENT_SOURCE_DIR FILENAME name)
  if(NOT folder STREQUAL name)
    message(FATAL_ERROR "zuskux_platform_interface(${folder}) is in the folder ${name}.")
  endif()
  add_library(platform_${folder} INTERFACE)
  add_library(platform::${folder} ALIAS platform_${folder})
  target_include_directories(
    platform_${folder} INTERFACE "$<BUILD_INTERFACE:${ZUSKUX_PLATFORM_ROOTS}>"
                                 $<INSTALL_INTERFACE:${ZUSKUX_INSTALL_PLATFORM}>)
  target_link_libraries(platform_${folder} INTERFACE ${ARG_DEPENDS})
  zuskux_install_platform_folder(${folder})
endfunction()

# zuskux_platform_standin(<folder> <source>...): defines the stand-in.
function(zuskux_platform_standin folder)
  add_library(platform_${folder}_standin OBJECT ${ARGN})
  target_link_libraries(platform_${folder}_standin PUBLIC platform_${folder}
                                                   PRIVATE zuskux_warnings)
  set_property(GLOBAL APPEND PROPERTY ZUSKUX_STANDINS platform_${folder}_standin)
endfunction()

# zuskux_platform_schema(<target> <file>.proto): defines platform::<target> as a shared library
# lib<file>.so, because a process must hold only one copy of a schema.
function(zuskux_platform_schema target proto)
  cmake_path(GET proto STEM name)
  set(folder ${CMAKE_CURRENT_SOURCE_DIR})
  if(NOT EXISTS ${folder}/${proto})
    cmake_path(GET folder FILENAME folder)
    set(folder ${CMAKE_SOURCE_DIR}/platform/${folder})
  endif()
  set(generated ${CMAKE_CURRENT_BINARY_DIR}/generated)
  file(MAKE_DIRECTORY ${generated})
  add_custom_command(
    OUTPUT ${generated}/${name}.pb.cc ${generated}/${name}.pb.h
    COMMAND protobuf::protoc --cpp_out=${generated} --proto_path=${folder} ${proto}
    DEPENDS ${folder}/${proto}
    VERBATIM)
  add_library(platform_${target} SHARED ${generated}/${name}.pb.cc ${generated}/${name}.pb.h)
  add_library(platform::${target} ALIAS platform_${target})
  set_target_properties(platform_${target} PROPERTIES OUTPUT_NAME ${name} SOVERSION 1)
  target_include_directories(
    platform_${target} SYSTEM INTERFACE $<BUILD_INTERFACE:${generated}>
                                        $<INSTALL_INTERFACE:${ZUSKUX_INSTALL_SCHEMA}>)
  target_include_directories(platform_${target} PRIVATE ${generated})
  target_link_libraries(platform_${target} PUBLIC protobuf::libprotobuf)
  zuskux_install_schema(platform_${target} ${folder}/${proto} ${generated}/${name}.pb.h)
endfunction()

# zuskux_bundle_objects(<interface target> <library>...): linking the target, directly or indirectly,
# links what the libraries require and, of object libraries, the objects.
function(zuskux_bundle_objects target)
  foreach(objects IN LISTS ARGN)
    get_target_property(type ${objects} TYPE)
    if(type STREQUAL OBJECT_LIBRARY)
      target_sources(${target} INTERFACE $<TARGET_OBJECTS:${objects}>)
    endif()
    get_target_property(libraries ${objects} INTERFACE_LINK_LIBRARIES)
    list(FILTER libraries EXCLUDE REGEX LINK_ONLY)
    target_link_libraries(${target} INTERFACE ${libraries})
    target_include_directories(
      ${target} INTERFACE $<TARGET_PROPERTY:${objects},INTERFACE_INCLUDE_DIRECTORIES>)
  endforeach()
endfunction()
