# This script writes Debian's changelog, compressed, from NEWS.md:
#   cmake -D NEWS=NEWS.md -D PACKAGE=... -D MAINTAINER=... -D CHANGELOG=... -P changelog.cmake
# A heading such as "## 0.1.0, 2026-11-21" begins a version; the entries of the version are the items below it.

file(READ "${NEWS}" news)
string(REPLACE ";" "\\;" news "${news}")
string(REGEX REPLACE "\n  +" " " news "${news}") # puts each item on one line
string(REPLACE "\n" ";" lines "${news}")

# finish_version(): write the last line of the version that `date` belongs to.
macro(finish_version)
  if(date)
    execute_process(COMMAND date --utc --rfc-email "--date=${date}"
      OUTPUT_VARIABLE stamp OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    string(APPEND changelog "\n -- ${MAINTAINER}  ${stamp}\n\n")
  endif()
endmacro()

# append_item(<text>): add an item, wrapped as Debian's changelogs are.
function(append_item text)
  execute_process(COMMAND "${CMAKE_COMMAND}" -E echo "${text}" COMMAND fold -s -w 74
    OUTPUT_VARIABLE folded OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX REPLACE " *\n" "\n    " folded "${folded}")
  set(changelog "${changelog}  * ${folded}\n" PARENT_SCOPE)
endfunction()

set(changelog "")
set(date "")
foreach(line IN LISTS lines)
  if(line MATCHES "^## ([0-9.]+), ([0-9-]+)$")
    set(version "${CMAKE_MATCH_1}")
    finish_version()
    set(date "${CMAKE_MATCH_2}")
    string(APPEND changelog "${PACKAGE} (${version}) unstable; urgency=medium\n\n")
  elseif(line MATCHES "^- (.*)$")
    append_item("${CMAKE_MATCH_1}")
  endif()
endforeach()
finish_version()
string(REGEX REPLACE "\n\n$" "\n" changelog "${changelog}")

if(NOT changelog)
  message(FATAL_ERROR "${NEWS} tells of no version")
endif()
file(WRITE "${CHANGELOG}" "${changelog}")
execute_process(COMMAND gzip -9nf "${CHANGELOG}" COMMAND_ERROR_IS_FATAL ANY)
