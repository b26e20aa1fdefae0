#!/usr/bin/env bash
# Measures the configuration scanner generators against each other: the library's re2c scanner and
# a flex scanner for the same tokens, over a 20 MB text and 2,000 small ones.
# Usage: bench/ScannerChoice/run.sh [BUILD_FOLDER]   (a configured linux-x64 build, by default)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
build=${1:-$root/build/linux-x64}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --build "$build" --target Corestone >/dev/null
generated=$build/Corestone/generated
python3 "$here/gen.py" "$work/big.cfg" 20 "$work/small" 2000
flex -Cf -o "$work/FlexScanner.cpp" "$here/FlexScanner.l"
flags=(-O2 -std=c++17 -I"$root/Corestone" -I"$root/Corestone/include" -I"$generated" -I"$here")
g++ "${flags[@]}" -o "$work/re2c" "$here/Driver.cpp" "$generated/ConfigGrammerNew.lex.cpp" \
    -L"$build/bin" -lCorestone -Wl,-rpath,"$build/bin"
g++ "${flags[@]}" -DUSE_FLEX -Wno-register -o "$work/flex" "$here/Driver.cpp" "$work/FlexScanner.cpp" \
    -L"$build/bin" -lCorestone -Wl,-rpath,"$build/bin"
for scanner in re2c flex; do
  for run in 1 2; do
    printf '%-5s run %s: ' "$scanner" "$run"
    "$work/$scanner" "$work/big.cfg" "$work"/small/*.cfg
  done
done
