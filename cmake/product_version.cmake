# Writes the header with what the program says of itself; run at every build, as a script:
#   cmake -D SOURCE_DIR=... -D VERSION=... -D HEADER=... -P product_version.cmake
# A header that would be the same is not touched, so that nothing is compiled again.

file(REAL_PATH "${SOURCE_DIR}" source_dir)
set(revision unknown) # no checkout, no git, or nothing committed yet

# In a folder that only lies within somebody's checkout, git would tell of that one.
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
