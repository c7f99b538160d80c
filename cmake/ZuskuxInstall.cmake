# Installation, in three components: `runtime` (the shared libraries), `development` (headers,
# schemas, CMake package, pkg-config file) and `tools` (the programs of the reference system). The
# prefix is relocatable.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ZUSKUX_INSTALL_PLATFORM ${CMAKE_INSTALL_INCLUDEDIR}/zuskux/platform)
set(ZUSKUX_INSTALL_SCHEMA ${CMAKE_INSTALL_INCLUDEDIR}/zuskux/schema)
set(ZUSKUX_INSTALL_ZLOG ${CMAKE_INSTALL_INCLUDEDIR}/zuskux/zlog)
set(ZUSKUX_INSTALL_CMAKE ${CMAKE_INSTALL_LIBDIR}/cmake/zuskux)
set(ZUSKUX_INSTALL_DATA ${CMAKE_INSTALL_DATADIR}/zuskux)
set(ZUSKUX_INSTALL_DOCUMENTS ${CMAKE_INSTALL_DATADIR}/doc/zuskux)
set(ZUSKUX_INSTALL_OPERATOR_DOCUMENTS ${CMAKE_INSTALL_DATADIR}/doc/zuskux-tools)

# Lets installed files find libraries outside the default folders too, such as the system's zlog.
set(CMAKE_INSTALL_RPATH_USE_LINK_PATH ON)

# Sets `result` to the relative path from one folder below the prefix to another.
function(zuskux_path_between from to result)
  cmake_path(RELATIVE_PATH to BASE_DIRECTORY ${from} OUTPUT_VARIABLE path)
  set(${result} ${path} PARENT_SCOPE)
endfunction()

# Exports platform_<name> as zuskux::<name>.
function(zuskux_export target)
  string(REGEX REPLACE "^(platform|zuskux)_" "" name ${target})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name})
endfunction()

function(zuskux_install_library target)
  zuskux_export(${target})
  set_target_properties(${target} PROPERTIES INSTALL_RPATH $ORIGIN)
  install(TARGETS ${target} EXPORT zuskux LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
          COMPONENT runtime NAMELINK_COMPONENT development)
endfunction()

function(zuskux_install_interface target)
  zuskux_export(${target})
  install(TARGETS ${target} EXPORT zuskux COMPONENT development)
endfunction()

function(zuskux_install_program target)
  zuskux_path_between(${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_LIBDIR} libraries)
  set_target_properties(${target} PROPERTIES INSTALL_RPATH $ORIGIN/${libraries})
  install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endfunction()

# zuskux_install_platform_folder(<folder>): installs the headers that the library was built with,
# including those in subfolders.
function(zuskux_install_platform_folder folder)
  zuskux_install_interface(platform_${folder})
  set(installed ${ZUSKUX_STANDIN_HEADERS})
  foreach(root IN LISTS ZUSKUX_PLATFORM_ROOTS)
    set(patterns *.h *.hh *.hpp *.hxx *.inc *.ipp)
    list(TRANSFORM patterns PREPEND ${root}/${folder}/)
    file(GLOB_RECURSE headers RELATIVE ${root}/${folder} ${patterns})
    list(REMOVE_ITEM headers ${installed})
    list(APPEND installed ${headers})
    foreach(header IN LISTS headers)
      cmake_path(GET header PARENT_PATH subfolder)
      install(FILES ${root}/${folder}/${header}
              DESTINATION ${ZUSKUX_INSTALL_PLATFORM}/${folder}/${subfolder} COMPONENT development)
    endforeach()
  endforeach()
endfunction()

function(zuskux_install_schema target proto header)
  zuskux_install_library(${target})
  install(FILES ${header} DESTINATION ${ZUSKUX_INSTALL_SCHEMA} COMPONENT development)
  install(FILES ${proto} DESTINATION ${ZUSKUX_INSTALL_DATA}/proto COMPONENT development)
endfunction()

# Installs the files for find_package(zuskux) and pkg-config.
function(zuskux_install_package_files)
  set(folder ${CMAKE_BINARY_DIR}/install)
  set(zlog_is_ours OFF)
  if(TARGET platform_zlog)
    set(zlog_is_ours ON)
  else()
    install(FILES cmake/Findzlog.cmake DESTINATION ${ZUSKUX_INSTALL_CMAKE} COMPONENT development)
  endif()

  get_property(platform_dependencies GLOBAL PROPERTY ZUSKUX_PLATFORM_DEPENDENCIES)
  configure_package_config_file(cmake/zuskux-config.cmake.in ${folder}/zuskux-config.cmake
                                INSTALL_DESTINATION ${ZUSKUX_INSTALL_CMAKE})
  write_basic_package_version_file(${folder}/zuskux-config-version.cmake
                                   COMPATIBILITY SameMinorVersion)
  install(FILES ${folder}/zuskux-config.cmake ${folder}/zuskux-config-version.cmake
          DESTINATION ${ZUSKUX_INSTALL_CMAKE} COMPONENT development)
  install(EXPORT zuskux NAMESPACE zuskux:: FILE zuskux-targets.cmake
          DESTINATION ${ZUSKUX_INSTALL_CMAKE} COMPONENT development)

  if(zlog_is_ours)
    set(zlog_cflags -I\${prefix}/${ZUSKUX_INSTALL_ZLOG})
    set(zlog_libs -lzlog)
  else()
    cmake_path(GET ZLOG_LIBRARY PARENT_PATH zlog_folder)
    set(zlog_cflags -I${ZLOG_INCLUDE_DIR})
    set(zlog_libs "-L${zlog_folder} -lzlog")
  endif()
  get_property(modules GLOBAL PROPERTY ZUSKUX_PLATFORM_MODULES)
  list(PREPEND modules protobuf)
  list(JOIN modules ", " requires)
  set(pkgconfig ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  zuskux_path_between(${pkgconfig} . prefix)
  configure_file(cmake/zuskux.pc.in ${folder}/zuskux.pc @ONLY)
  install(FILES ${folder}/zuskux.pc DESTINATION ${pkgconfig} COMPONENT development)
endfunction()

# Installs zuskux-check-platform, which finds the library relative to itself.
function(zuskux_install_platform_check)
  zuskux_path_between(${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_LIBDIR} libraries)
  set(library_from_programs ${libraries}/$<TARGET_SONAME_FILE_NAME:zuskux>)
  set(script ${CMAKE_BINARY_DIR}/install/zuskux-check-platform)
  configure_file(packaging/zuskux-check-platform.in ${script}.in @ONLY)
  file(GENERATE OUTPUT ${script} INPUT ${script}.in
       FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                        WORLD_EXECUTE)
  install(PROGRAMS ${script} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT development)
endfunction()

# Installs the documents and the examples that they mention, laid out as in the tree, so that their
# links keep working.
function(zuskux_install_documents)
  install(DIRECTORY docs DESTINATION ${ZUSKUX_INSTALL_DOCUMENTS} COMPONENT development
          FILES_MATCHING PATTERN *.md PATTERN *.svg PATTERN *.webp PATTERN *.yml
          PATTERN reference EXCLUDE)
  install(FILES platform/zlog/README.md
          DESTINATION ${ZUSKUX_INSTALL_DOCUMENTS}/platform/zlog COMPONENT development)
  install(DIRECTORY examples/host examples/vendor_platform
          DESTINATION ${ZUSKUX_INSTALL_DOCUMENTS}/examples COMPONENT development)
endfunction()

# Installs the operator's page and the pages that it links to.
function(zuskux_install_operator_page)
  install(FILES docs/operating.md docs/http.md docs/wire_protocol.md docs/recovery.md docs/linux.md
          DESTINATION ${ZUSKUX_INSTALL_OPERATOR_DOCUMENTS} COMPONENT tools)
  install(FILES docs/pictures/page_failed.webp docs/pictures/recovery.svg
          DESTINATION ${ZUSKUX_INSTALL_OPERATOR_DOCUMENTS}/pictures COMPONENT tools)
  install(DIRECTORY docs/prometheus DESTINATION ${ZUSKUX_INSTALL_OPERATOR_DOCUMENTS}
          COMPONENT tools)
endfunction()

# zuskux_install_man_page(<name> <section> <component>)
function(zuskux_install_man_page name section component)
  set(ZUSKUX_INSTALL_SITES ${CMAKE_INSTALL_PREFIX}/${ZUSKUX_INSTALL_DATA}/sites)
  set(ZUSKUX_INSTALL_PROTOS ${CMAKE_INSTALL_PREFIX}/${ZUSKUX_INSTALL_DATA}/proto)
  set(ZUSKUX_INSTALL_OPERATOR_PAGE
      ${CMAKE_INSTALL_PREFIX}/${ZUSKUX_INSTALL_OPERATOR_DOCUMENTS}/operating.md)
  set(page ${CMAKE_BINARY_DIR}/install/man/${name}.${section})
  configure_file(packaging/man/${name}.${section}.in ${page} @ONLY)
  execute_process(COMMAND gzip -9nkf ${page} COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
          COMPONENT ${component})
endfunction()

# zuskux_install_completion(<file> <folder> <suffix> <program>...): installs a file that completes all
# programs, under each program's name with the suffix, by which the shell looks it up.
function(zuskux_install_completion file folder suffix first)
  set(folder ${CMAKE_INSTALL_DATADIR}/${folder})
  install(FILES packaging/${file} DESTINATION ${folder} RENAME ${first}${suffix} COMPONENT tools)
  foreach(program IN LISTS ARGN)
    set(link ${CMAKE_BINARY_DIR}/install/completion/${program}${suffix})
    file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/install/completion)
    file(CREATE_LINK ${first}${suffix} ${link} SYMBOLIC)
    install(FILES ${link} DESTINATION ${folder} COMPONENT tools)
  endforeach()
endfunction()

# Installs the systemd units of the programs that run as services.
function(zuskux_install_units)
  foreach(unit IN LISTS ARGN)
    configure_file(packaging/systemd/${unit}.service.in
                   ${CMAKE_BINARY_DIR}/install/systemd/${unit}.service @ONLY)
    install(FILES ${CMAKE_BINARY_DIR}/install/systemd/${unit}.service
            DESTINATION lib/systemd/system COMPONENT tools)
  endforeach()
endfunction()

# Installs everything that is not installed next to its definition.
function(zuskux_install_all)
  zuskux_install_library(zuskux)
  zuskux_install_interface(zuskux_headers)
  install(DIRECTORY include/zuskux DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
  install(FILES platform/zlog/zuskux.zlog.conf DESTINATION ${ZUSKUX_INSTALL_DATA}
          COMPONENT runtime)
  zuskux_install_package_files()
  zuskux_install_platform_check()
  zuskux_install_documents()
  zuskux_install_man_page(zuskux-check-platform 1 development)

  if(ZUSKUX_BUILD_REFERENCE)
    set(programs zuskux-manager zuskux-hal zuskux-record zuskux-generate-site)
    foreach(program IN LISTS programs)
      zuskux_install_program(${program})
      zuskux_install_man_page(${program} 1 tools)
    endforeach()
    zuskux_install_man_page(zuskux-site 5 tools)
    zuskux_install_operator_page()
    zuskux_install_units(zuskux-hal zuskux-manager)
    zuskux_install_completion(completion.bash bash-completion/completions "" ${programs})
    zuskux_install_completion(completion.fish fish/vendor_completions.d .fish ${programs})
    # zsh finds all programs in the file's first line.
    install(FILES packaging/completion.zsh DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions
            RENAME _zuskux COMPONENT tools)
    install(DIRECTORY examples/sites DESTINATION ${ZUSKUX_INSTALL_DATA} COMPONENT tools
            FILES_MATCHING PATTERN *.txtpb)
    install(FILES reference/site/site.proto reference/server/fault.proto
            DESTINATION ${ZUSKUX_INSTALL_DATA}/proto COMPONENT tools)
  endif()
endfunction()
