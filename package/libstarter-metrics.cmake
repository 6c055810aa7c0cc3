# The library of the metrics, which services and the companion link, and what services are built with.
list(APPEND CPACK_COMPONENTS_ALL libstarter-metrics0 libstarter-metrics-dev)
foreach(component IN ITEMS libstarter-metrics0 libstarter-metrics-dev)
  install(FILES
    "${changelog}.gz"
    copyright
    DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/${component}" COMPONENT ${component})
endforeach()

install(FILES lintian-overrides-libstarter-metrics0 RENAME libstarter-metrics0
  DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides" COMPONENT libstarter-metrics0)

set(CPACK_DEBIAN_LIBSTARTER-METRICS0_PACKAGE_NAME libstarter-metrics0)
set(CPACK_DEBIAN_LIBSTARTER-METRICS0_PACKAGE_SOURCE starter)
set(CPACK_DEBIAN_LIBSTARTER-METRICS0_PACKAGE_SECTION libs)
set_description(libstarter-metrics0 "metrics of services that run in starter")
set(CPACK_DEBIAN_LIBSTARTER-METRICS0_PACKAGE_SHLIBDEPS ON)
# Packages of services find the dependency in the first file. By the second one, the loader learns of the library.
set(control "${CMAKE_CURRENT_BINARY_DIR}/libstarter-metrics0")
file(CONFIGURE OUTPUT "${control}/shlibs"
  CONTENT "libstarter-metrics 0 libstarter-metrics0 (>= @PROJECT_VERSION@)\n" @ONLY)
file(CONFIGURE OUTPUT "${control}/triggers" CONTENT "activate-noawait ldconfig\n" @ONLY)
set(CPACK_DEBIAN_LIBSTARTER-METRICS0_PACKAGE_CONTROL_EXTRA "${control}/shlibs;${control}/triggers")

set(CPACK_DEBIAN_LIBSTARTER-METRICS-DEV_PACKAGE_NAME libstarter-metrics-dev)
set(CPACK_DEBIAN_LIBSTARTER-METRICS-DEV_PACKAGE_SOURCE starter)
set(CPACK_DEBIAN_LIBSTARTER-METRICS-DEV_PACKAGE_SECTION libdevel)
set_description(libstarter-metrics-dev "metrics of services that run in starter: header")
set(CPACK_DEBIAN_LIBSTARTER-METRICS-DEV_PACKAGE_DEPENDS "libstarter-metrics0 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_LIBSTARTER-METRICS-DEV_PACKAGE_SUGGESTS "cmake, pkg-config, starter-companions")

# The companions link the library, and the tool that looks their dependencies up finds it here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/metrics")
