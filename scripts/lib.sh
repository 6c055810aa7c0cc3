# shellcheck shell=bash
# The other scripts source this file, which makes the repository root their working directory.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# install_missing GROUP...: install the packages that scripts/packages lists for the groups and the system lacks.
install_missing() {
  local wanted missing=() package
  wanted=$(awk -v groups=" $* " '!/^#/ && NF == 2 && index(groups, " " $1 " ") { print $2 }' scripts/packages)
  for package in $wanted; do
    dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
  done
  ((${#missing[@]})) || return 0

  echo "Installing: ${missing[*]}"
  local as_root=()
  if ((EUID != 0)); then as_root=(sudo); fi
  "${as_root[@]}" apt-get -q update
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y install --no-install-recommends "${missing[@]}"
}

# build PRESET [CMAKE_ARGUMENT...]: configure and build the preset.
build() {
  local preset=$1
  shift
  cmake --preset "$preset" "$@"
  cmake --build --preset "$preset"
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
