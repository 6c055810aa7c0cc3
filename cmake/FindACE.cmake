# libACE ships no CMake package; the imported target ACE::ACE stands for it everywhere. This module is also installed
# beside the package of scrt, whose users need the target too.
find_library(ACE_LIBRARY ACE)
find_path(ACE_INCLUDE_DIR ace/ACE.h)
mark_as_advanced(ACE_LIBRARY ACE_INCLUDE_DIR)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(ACE REQUIRED_VARS ACE_LIBRARY ACE_INCLUDE_DIR)

if(ACE_FOUND AND NOT TARGET ACE::ACE)
  find_package(Threads REQUIRED)
  add_library(ACE::ACE UNKNOWN IMPORTED)
  set_target_properties(ACE::ACE PROPERTIES
    IMPORTED_LOCATION "${ACE_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${ACE_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES Threads::Threads)
endif()
