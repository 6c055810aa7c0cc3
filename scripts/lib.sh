# shellcheck shell=bash
# The other scripts source this file, which makes the repository root their working directory.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# install_missing GROUP...: install the packages that scripts/packages lists for the groups and the system lacks.
install_missing() {
  local wanted installed missing=() package
  wanted=$(awk -v groups=" $* " '!/^#/ && NF == 2 && index(groups, " " $1 " ") { print $2 }' scripts/packages)
  installed=$(dpkg-query -W -f '${db:Status-Status} ${binary:Package}\n' | sed -nE 's/^installed ([^:]+).*/\1/p')
  for package in $wanted; do
    grep -qx "$package" <<<"$installed" || missing+=("$package")
  done
  ((${#missing[@]})) || return 0

  echo "Installing: ${missing[*]}"
  local as_root=()
  if ((EUID != 0)); then as_root=(sudo); fi
  "${as_root[@]}" apt-get -q update
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y install --no-install-recommends "${missing[@]}"
}

# configure PRESET [CMAKE_ARGUMENT...]: configure the preset, unless that would change nothing: the build itself
# configures again when a CMakeLists.txt has changed. The compile commands of the release are linked to where editors
# look for them.
configure() {
  local preset=$1
  shift
  if (($#)) || [[ ! build/$preset/build.ninja -nt CMakePresets.json ]]; then
    cmake --preset "$preset" "$@"
  fi
  if [[ $preset == release ]]; then ln -sf build/release/compile_commands.json .; fi
}

# build PRESET [CMAKE_ARGUMENT...]: configure the preset and build all of it.
build() {
  configure "$@"
  cmake --build --preset "$1"
}

# run_tests PRESET [CTEST_ARGUMENT...]: run the preset's tests in parallel, and print the counts on the last line.
run_tests() {
  local preset=$1 status=0 report
  shift
  report=build/$preset/tests.xml
  rm -f "$report"
  ctest --preset "$preset" --parallel "$(nproc)" --output-junit "$PWD/$report" "$@" || status=$?
  count_tests "$report" || status=1
  return "$status"
}

# count_tests REPORT: print "N passed, N failed" of a JUnit report; fails when no test ran.
count_tests() {
  local tests failed skipped
  tests=$(grep -c '<testcase ' "$1" || true)
  failed=$(grep -c '<testcase .*status="fail"' "$1" || true)
  skipped=$(grep -Ec '<testcase .*status="(notrun|disabled)"' "$1" || true)
  echo "$((tests - failed - skipped)) passed, $failed failed, $skipped skipped"
  ((tests > 0))
}
