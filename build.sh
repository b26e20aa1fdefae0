#!/usr/bin/env bash
# One entry point for the project's jobs; each installs what it needs first.
#   ./build.sh main    build linux-x64, run the example host and show its log
#   ./build.sh test    build every target and run every test (what CI runs)
#   ./build.sh bench   build the benchmarks and print the comparison table
set -euo pipefail
cd "$(dirname "$0")"
jobs=$(nproc)

preset() { # configure, build and (unless told otherwise) test one preset
  local name=$1 run_tests=${2:-yes}
  echo "=== $name"
  cmake --preset "$name" >/dev/null
  cmake --build --preset "$name" -j "$jobs"
  [ "$run_tests" = yes ] || return 0
  ctest --preset "$name" -j "$jobs" 2>&1 | tee build/ctest-$name.log
  return "${PIPESTATUS[0]}"
}

check_format() {
  local bad
  bad=$(git ls-files -- '*.cpp' '*.h' | xargs clang-format --dry-run 2>&1 | grep -c 'warning:' || true)
  if [ "$bad" -ne 0 ]; then
    git ls-files -- '*.cpp' '*.h' | xargs clang-format --dry-run 2>&1 | grep 'warning:' | cut -d: -f1 | sort -u
    echo "clang-format: $bad lines need formatting (run: git ls-files '*.cpp' '*.h' | xargs clang-format -i)"
    exit 1
  fi
}

check_tidy() {
  local files
  files=$(git ls-files -- 'Corestone/*.cpp' | grep -v 'Win32\.cpp$')
  [ -n "$files" ] && run-clang-tidy -quiet -p build/linux-x64 $files >build/clang-tidy.log 2>&1 \
    || { grep -E 'error:|warning:' build/clang-tidy.log | head -40; echo "clang-tidy failed"; exit 1; }
}

with_wine() { # one Wine server for the whole run: every start after the first is cheap
  export WINEDEBUG=-all
  /usr/lib/wine/wineserver -p 120 || true # fails harmlessly when a server already runs
  /usr/lib/wine/wine64 wineboot -i >/dev/null 2>&1 || true
  "$@"
  /usr/lib/wine/wineserver -k 2>/dev/null || true
}

case "${1:-}" in
  main)
    cmake/deps.sh main
    cmake --preset linux-x64 >/dev/null
    cmake --build --preset linux-x64 -j "$jobs" --target HostDemo
    # The host leaves its data and its UTF-16 log in the build folder; the log is shown as text.
    (cd build/linux-x64 && bin/HostDemo && iconv -f UTF-16 -t UTF-8 KivLog.txt)
    ;;
  test)
    cmake/deps.sh test
    mkdir -p build && rm -f build/ctest-*.log
    check_format
    preset linux-x64
    check_tidy
    preset linux-x64-asan
    preset linux-x64-tsan
    preset linux-x86
    preset linux-x64-fuzz no
    fuzz/run.sh build/linux-x64-fuzz/bin 20000 2>&1 | tee build/fuzz.log
    with_wine preset windows-x64
    preset windows-x86 no
    echo "windows-x86: built; its tests are not run, as no 32-bit Wine can be installed on this machine"
    # One closing line over every target's run.
    cat build/ctest-*.log | awk '/tests passed, [0-9]+ tests failed out of/ {
        failed += $4; total += $NF } END { print "total: " total - failed " passed, " failed " failed" }'
    ;;
  bench)
    cmake/deps.sh bench
    cmake --preset linux-x64-bench >/dev/null
    cmake --build --preset linux-x64-bench -j "$jobs"
    python3 bench/table.py build/linux-x64-bench/bin
    ;;
  *) sed -n '2,6p' "$0"; exit 2 ;;
esac
