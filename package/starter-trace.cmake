# The package starter-trace has the tool for back traces. It is a package of its own, as logs are read on the machines of
# developers too, and the machines that run components need neither the tool nor the libraries of elfutils.
list(APPEND CPACK_COMPONENTS_ALL starter-trace)
install(FILES
  "${changelog}.gz"
  copyright
  DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/starter-trace" COMPONENT starter-trace)

set(CPACK_DEBIAN_STARTER-TRACE_PACKAGE_NAME starter-trace)
set(CPACK_DEBIAN_STARTER-TRACE_PACKAGE_SOURCE starter)
set(CPACK_DEBIAN_STARTER-TRACE_PACKAGE_SECTION devel)
set_description(starter-trace "lead the back traces in logs of starter back to lines")
set(CPACK_DEBIAN_STARTER-TRACE_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_STARTER-TRACE_PACKAGE_RECOMMENDS libdebuginfod1) # loaded at run time where servers are configured
set(CPACK_DEBIAN_STARTER-TRACE_PACKAGE_SUGGESTS "starter, systemd") # journalctl is part of systemd
