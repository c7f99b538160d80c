# Debian packages, one per installed component: libzuskux0, libzuskux-dev, zuskux-tools. ./package
# builds them.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "zuskux maintainers <zuskux@packages.invalid>"
    CACHE STRING "Maintainer of the packages")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_SOURCE_DIR}/build/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
                                                GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_COMPONENTS_ALL runtime development)
if(ZUSKUX_BUILD_REFERENCE)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(same_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libzuskux0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_SOURCE_DIR}/packaging/shlibs
                                               ${CMAKE_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "layer between a destination manager and its HAL
Translates forwarding destinations (VLAN, host, MPLS, ECMP, VRF) into
messages of a hardware abstraction layer, and its results into
notifications on the destination manager's controllers.
.
This package holds the shared libraries.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzuskux-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libzuskux0 ${same_version}, libprotobuf-dev, libboost-dev, binutils")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "layer between a destination manager and its HAL (development)
Translates forwarding destinations (VLAN, host, MPLS, ECMP, VRF) into
messages of a hardware abstraction layer, and its results into
notifications on the destination manager's controllers.
.
This package holds what a host program is built with: headers, message
schemas, CMake package, pkg-config file, a check of the host's platform,
an example and the documentation.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zuskux-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libzuskux0 ${same_version}")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS graphviz)
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA ${CMAKE_SOURCE_DIR}/packaging/conffiles)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
    "reference system around the zuskux library
Translates forwarding destinations (VLAN, host, MPLS, ECMP, VRF) into
messages of a hardware abstraction layer, and its results into
notifications on the destination manager's controllers.
.
This package holds a destination manager and a HAL server to try the
library with, a tool for recordings of HAL requests, a generator of site
files and example sites.")

# The files that Debian requires of every package. Their date is SOURCE_DATE_EPOCH.
function(zuskux_debian_documents)
  set(folder ${CMAKE_BINARY_DIR}/install/debian)
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  configure_file(packaging/debian_changelog.in ${folder}/changelog.Debian @ONLY)
  configure_file(CHANGELOG.md ${folder}/changelog COPYONLY)
  foreach(name IN ITEMS changelog changelog.Debian)
    execute_process(COMMAND gzip -9nf ${folder}/${name} COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
  foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    set(documents ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    install(FILES ${folder}/changelog.gz ${folder}/changelog.Debian.gz
                  ${CMAKE_SOURCE_DIR}/packaging/copyright
            DESTINATION ${documents} COMPONENT ${component})
  endforeach()
endfunction()

option(ZUSKUX_DEBIAN_DOCUMENTS "Install the changelog and copyright files of Debian packages" OFF)
if(ZUSKUX_DEBIAN_DOCUMENTS)
  zuskux_debian_documents()
  if(ZUSKUX_BUILD_REFERENCE)
    # Makes ip show the name of our routing protocol. ip looks there whatever the prefix is.
    install(FILES ${CMAKE_SOURCE_DIR}/packaging/rt_protos.conf DESTINATION /etc/iproute2/rt_protos.d
            RENAME zuskux.conf COMPONENT tools)
  endif()
endif()

include(CPack)
