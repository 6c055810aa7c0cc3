# Finds elfutils' libdw, as the target DW::DW. It comes with nothing that describes it to CMake.
find_path(DW_INCLUDE_DIR elfutils/libdwfl.h)
find_library(DW_LIBRARY dw)
find_library(ELF_LIBRARY elf)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(DW REQUIRED_VARS DW_LIBRARY ELF_LIBRARY DW_INCLUDE_DIR)
mark_as_advanced(DW_LIBRARY ELF_LIBRARY DW_INCLUDE_DIR)

if(DW_FOUND AND NOT TARGET DW::DW)
  add_library(DW::DW INTERFACE IMPORTED GLOBAL)
  target_include_directories(DW::DW SYSTEM INTERFACE "${DW_INCLUDE_DIR}")
  target_link_libraries(DW::DW INTERFACE "${DW_LIBRARY}" "${ELF_LIBRARY}")
endif()
