# Every build runs this script, which writes the header with the version and the source revision of the program:
#   cmake -D SOURCE_DIR=... -D VERSION=... -D HEADER=... -P product_version.cmake
# A header whose content would stay the same is not touched, so that nothing is compiled again.

file(REAL_PATH "${SOURCE_DIR}" source_dir)
set(revision unknown) # holds without a checkout, without git, and without a commit

# If the folder only lies within some other checkout, git would tell the revision of that checkout.
execute_process(COMMAND git -C "${source_dir}" rev-parse --show-toplevel
  OUTPUT_VARIABLE top ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
if(top STREQUAL source_dir)
  execute_process(COMMAND git -C "${source_dir}" rev-parse --verify --quiet --short=12 HEAD
    OUTPUT_VARIABLE head ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(head)
    set(revision "${head}")
  endif()
endif()

file(CONFIGURE OUTPUT "${HEADER}" CONTENT [[
#define STARTER_VERSION "@VERSION@"
#define STARTER_REVISION "@revision@"
]] @ONLY)
