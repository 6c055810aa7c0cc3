# The package starter-companions holds the services that come with the program. They are of no use without it, and are
# tested with it, so the package needs the program in its own version.
list(APPEND CPACK_COMPONENTS_ALL starter-companions)
install(FILES
  "${changelog}.gz"
  copyright
  DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/starter-companions" COMPONENT starter-companions)

set(CPACK_DEBIAN_STARTER-COMPANIONS_PACKAGE_NAME starter-companions)
set(CPACK_DEBIAN_STARTER-COMPANIONS_PACKAGE_SOURCE starter)
set(CPACK_DEBIAN_STARTER-COMPANIONS_PACKAGE_SECTION admin)
set_description(starter-companions "services that let operators see what starter runs")
set(CPACK_DEBIAN_STARTER-COMPANIONS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_STARTER-COMPANIONS_PACKAGE_DEPENDS 
  "starter (= ${PROJECT_VERSION}), libstarter-metrics0 (= ${PROJECT_VERSION})")
