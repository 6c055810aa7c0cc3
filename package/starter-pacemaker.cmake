# The package starter-pacemaker holds the agent by which Pacemaker runs components.
list(APPEND CPACK_COMPONENTS_ALL starter-pacemaker)
install(FILES
  "${changelog}.gz"
  copyright
  DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/starter-pacemaker" COMPONENT starter-pacemaker)

set(CPACK_DEBIAN_STARTER-PACEMAKER_PACKAGE_NAME starter-pacemaker)
set(CPACK_DEBIAN_STARTER-PACEMAKER_PACKAGE_SOURCE starter)
set(CPACK_DEBIAN_STARTER-PACEMAKER_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_STARTER-PACEMAKER_PACKAGE_ARCHITECTURE all)
set_description(starter-pacemaker "resource agent for components that starter runs")
set(CPACK_DEBIAN_STARTER-PACEMAKER_PACKAGE_DEPENDS
  "starter (>= ${PROJECT_VERSION}), pacemaker, pacemaker-cli-utils, resource-agents")
