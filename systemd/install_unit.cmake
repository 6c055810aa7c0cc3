# The installation runs this script, which writes the unit template with the paths of the prefix that is installed to.

# The module knows where a prefix has its configuration: /usr in /etc, /usr/local in /usr/local/etc, and /opt/starter in
# /etc/opt/starter. The directory of libraries, which it cannot guess outside of a project, is that of the configuration.
include(GNUInstallDirs)

set(SBIN_DIR "${CMAKE_INSTALL_FULL_SBINDIR}")
set(NOTIFY_LIBRARY "${CMAKE_INSTALL_FULL_LIBDIR}/starter/libstarter-notify.so")
set(CONFIG_DIR "${CMAKE_INSTALL_FULL_SYSCONFDIR}/starter")

cmake_path(ABSOLUTE_PATH STARTER_SYSTEMD_UNIT_DIR BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" OUTPUT_VARIABLE unit)
cmake_path(APPEND unit "starter@.service")
message(STATUS "Installing: $ENV{DESTDIR}${unit}")
configure_file("${STARTER_UNIT_TEMPLATE}" "$ENV{DESTDIR}${unit}" @ONLY)
list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${unit}")
