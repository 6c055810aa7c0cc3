# CPack runs this script before it packs the installed files: Debian's manual pages are compressed, and the directory of
# the configuration, which is outside of the prefix, comes with an explanation.
file(GLOB_RECURSE pages "${CPACK_TEMPORARY_DIRECTORY}/*/share/man/man*/*.[1-9]")
if(pages)
  execute_process(COMMAND gzip -9n ${pages} COMMAND_ERROR_IS_FATAL ANY)
endif()

set(etc "${CPACK_TEMPORARY_DIRECTORY}/etc")
file(COPY "${CMAKE_CURRENT_LIST_DIR}/README" DESTINATION "${etc}/starter")
file(CHMOD "${etc}/starter/README" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
file(CHMOD "${etc}" "${etc}/starter" PERMISSIONS ${CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
