# The program, the checker, the support library and most companions need the framework alone. These parts need more
# libraries, and are left out where a library is missing, so that the program can be built everywhere. Tests and packages
# need all parts.
if(STARTER_ALL_PARTS OR STARTER_BUILD_TESTS)
  set(need REQUIRED)
else()
  set(need QUIET)
endif()

list(APPEND CMAKE_MODULE_PATH "${CMAKE_CURRENT_LIST_DIR}")
find_package(nlohmann_json 3.11 ${need})
find_package(prometheus-cpp ${need} GLOBAL)
find_package(DW ${need})
set(STARTER_HAS_JSON ${nlohmann_json_FOUND})
set(STARTER_HAS_PROMETHEUS ${prometheus-cpp_FOUND})
set(STARTER_HAS_DW ${DW_FOUND})

if(NOT STARTER_HAS_JSON)
  message(STATUS "Left out for want of nlohmann_json 3.11: the companion control and starterctl")
endif()
if(NOT STARTER_HAS_PROMETHEUS)
  message(STATUS "Left out for want of prometheus-cpp: the companion metrics and its library")
endif()
if(NOT STARTER_HAS_DW)
  message(STATUS "Left out for want of libdw: starter-trace")
endif()
