#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test twice: in a normal
# build and in an AddressSanitizer + UndefinedBehaviorSanitizer build.
set -euo pipefail
cd "$(dirname "$0")"
bash .ci/deps.sh

jobs=$(nproc 2>/dev/null || echo 2)
run_suite() {
  local dir=$1; shift
  echo "=== configure $dir $*"
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
  echo "=== build $dir"
  cmake --build "$dir" -j "$jobs"
  echo "=== test $dir"
  (cd "$dir" && ctest --output-on-failure -j "$jobs" --timeout 1500)
}

run_suite build -DCMAKE_BUILD_TYPE=RelWithDebInfo
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:halt_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
run_suite build-asan -DCMAKE_BUILD_TYPE=Debug -DPDFKILN_SANITIZE=ON
echo "=== all tests passed in both builds"
