# CPack runs this script before it packs the installed files: Debian's manual pages are compressed.
file(GLOB_RECURSE pages "${CPACK_TEMPORARY_DIRECTORY}/*/share/man/man*/*.[1-9]")
if(pages)
  execute_process(COMMAND gzip -9n ${pages} COMMAND_ERROR_IS_FATAL ANY)
endif()
