#!/usr/bin/env bash
# Replays every seed corpus, then fuzzes each target for a fixed number of runs.
# Usage: fuzz/run.sh BINDIR [RUNS]    (RUNS defaults to 20000)
# New inputs go to a scratch folder, never into the committed corpus; a crash fails the run and
# leaves its input in build/fuzz-crashes/.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$1
runs=${2:-20000}
mkdir -p build/fuzz-crashes
status=0
for source in fuzz/*Fuzz.cpp; do
  name=$(basename "$source" .cpp)
  corpus=fuzz/corpus/${name%Fuzz}
  scratch=$(mktemp -d)
  mkdir -p "$corpus"
  echo "=== $name: $(ls "$corpus" | wc -l) seeds, $runs runs"
  if ! "$bin/$name" -runs="$runs" -seed=1 -max_len=65536 -timeout=10 -rss_limit_mb=2048 \
      -artifact_prefix=build/fuzz-crashes/"$name"- "$scratch" "$corpus" 2>build/fuzz-"$name".log; then
    tail -40 build/fuzz-"$name".log
    status=1
  fi
  grep -E 'DONE' build/fuzz-"$name".log || true
  rm -rf "$scratch"
done
exit $status
