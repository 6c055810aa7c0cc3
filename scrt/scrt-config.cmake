include(CMakeFindDependencyMacro)

# The module that finds the framework is installed beside this file.
set(scrt_module_path "${CMAKE_MODULE_PATH}")
list(PREPEND CMAKE_MODULE_PATH "${CMAKE_CURRENT_LIST_DIR}")
find_dependency(ACE)
set(CMAKE_MODULE_PATH "${scrt_module_path}")
unset(scrt_module_path)

include("${CMAKE_CURRENT_LIST_DIR}/scrt-targets.cmake")
