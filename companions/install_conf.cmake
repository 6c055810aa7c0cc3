# The installation runs this script, which writes the configuration file of a companion with the full path of its
# library.
foreach(name IN ITEMS COMPANION_CONF COMPANION_LIBRARY)
  cmake_path(ABSOLUTE_PATH ${name} BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE)
endforeach()

message(STATUS "Installing: $ENV{DESTDIR}${COMPANION_CONF}")
configure_file("${COMPANION_CONF_TEMPLATE}" "$ENV{DESTDIR}${COMPANION_CONF}" @ONLY FILE_PERMISSIONS
  OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${COMPANION_CONF}")
