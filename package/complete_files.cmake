# CPack runs this script before it packs the installed files, each component in a directory of its own. Debian's manual
# pages are compressed, and its static libraries have no symbols for a debugger. The directory of the configuration,
# which is outside of the prefix, comes with an explanation. Directories have the usual mode, whatever the umask.
file(GLOB_RECURSE pages "${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/man*/*.[1-9]")
if(pages)
  execute_process(COMMAND gzip -9n ${pages} COMMAND_ERROR_IS_FATAL ANY)
endif()

file(GLOB_RECURSE archives "${CPACK_TEMPORARY_DIRECTORY}/*.a")
foreach(archive IN LISTS archives)
  execute_process(
    COMMAND strip --strip-debug --remove-section=.comment --remove-section=.note --enable-deterministic-archives
      "${archive}"
    COMMAND_ERROR_IS_FATAL ANY)
endforeach()

set(etc "${CPACK_TEMPORARY_DIRECTORY}/starter/etc")
file(COPY "${CMAKE_CURRENT_LIST_DIR}/README" DESTINATION "${etc}/starter")
file(CHMOD "${etc}/starter/README" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

execute_process(COMMAND find "${CPACK_TEMPORARY_DIRECTORY}" -type d -exec chmod 755 {} +
  COMMAND_ERROR_IS_FATAL ANY)
