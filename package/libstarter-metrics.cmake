# The library of the metrics, which services and the companion link, and what services are built with.
list(APPEND CPACK_COMPONENTS_ALL libstarter-metrics0 libstarter-metrics-dev)
foreach(component IN ITEMS libstarter-metrics0 libstarter-metrics-dev)
  install(FILES
    "${changelog}.gz"
    copyright
    DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/${component}" COMPONENT ${component})
endforeach()

set(CPACK_DEBIAN_LIBSTARTER-METRICS0_PACKAGE_NAME libstarter-metrics0)
set(CPACK_DEBIAN_LIBSTARTER-METRICS0_PACKAGE_SOURCE starter)
set(CPACK_DEBIAN_LIBSTARTER-METRICS0_PACKAGE_SECTION libs)
set_description(libstarter-metrics0 "metrics of services that run in starter")
set(CPACK_DEBIAN_LIBSTARTER-METRICS0_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBSTARTER-METRICS0_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_LIBSTARTER-METRICS0_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_LIBSTARTER-METRICS-DEV_PACKAGE_NAME libstarter-metrics-dev)
set(CPACK_DEBIAN_LIBSTARTER-METRICS-DEV_PACKAGE_SOURCE starter)
set(CPACK_DEBIAN_LIBSTARTER-METRICS-DEV_PACKAGE_SECTION libdevel)
set_description(libstarter-metrics-dev "metrics of services that run in starter: header")
set(CPACK_DEBIAN_LIBSTARTER-METRICS-DEV_PACKAGE_DEPENDS "libstarter-metrics0 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_LIBSTARTER-METRICS-DEV_PACKAGE_SUGGESTS "cmake, pkg-config, starter-companions")
