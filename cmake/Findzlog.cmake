# Finds the system's zlog as zlog::zlog. Installed with the package if the library was built with
# that zlog.
find_path(ZLOG_INCLUDE_DIR zlog.h DOC "Folder of the system's zlog.h")
find_library(ZLOG_LIBRARY zlog DOC "The system's zlog library")
mark_as_advanced(ZLOG_INCLUDE_DIR ZLOG_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(zlog REQUIRED_VARS ZLOG_LIBRARY ZLOG_INCLUDE_DIR)
if(zlog_FOUND AND NOT TARGET zlog::zlog)
  add_library(zlog::zlog UNKNOWN IMPORTED GLOBAL)
  set_target_properties(
    zlog::zlog PROPERTIES IMPORTED_LOCATION ${ZLOG_LIBRARY}
                          INTERFACE_INCLUDE_DIRECTORIES ${ZLOG_INCLUDE_DIR})
endif()
