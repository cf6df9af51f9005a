# Finds libdeflate and defines Deflate::Deflate. On many systems its package has no CMake files.
find_library(Deflate_LIBRARY deflate)
find_path(Deflate_INCLUDE_DIR libdeflate.h)
mark_as_advanced(Deflate_LIBRARY Deflate_INCLUDE_DIR)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Deflate REQUIRED_VARS Deflate_LIBRARY Deflate_INCLUDE_DIR)

if(Deflate_FOUND AND NOT TARGET Deflate::Deflate)
  add_library(Deflate::Deflate UNKNOWN IMPORTED)
  set_target_properties(Deflate::Deflate PROPERTIES
    IMPORTED_LOCATION ${Deflate_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${Deflate_INCLUDE_DIR})
endif()
