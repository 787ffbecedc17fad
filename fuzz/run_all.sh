#!/usr/bin/env bash
# Runs every fuzz target for a fixed time from its committed seed corpus.
#   fuzz/run_all.sh BUILD_DIR SECONDS
# New inputs go to a scratch copy of the corpus, so the committed seeds stay
# small. Any crash, leak or timeout fails the run and leaves its input in the
# scratch directory.
set -u
build=${1:?build directory}
seconds=${2:-30}
here=$(cd "$(dirname "$0")" && pwd)
work=${FUZZ_WORK:-$here/corpus-work}
status=0
for target in "$build"/fuzz/*_fuzz; do
  [ -x "$target" ] || continue
  name=$(basename "$target")
  seeds="$here/corpus/${name%_fuzz}"
  scratch="$work/${name%_fuzz}"
  mkdir -p "$scratch" "$seeds"
  cp -n "$seeds"/* "$scratch"/ 2>/dev/null || true
  echo "== $name for ${seconds}s"
  if ! "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$scratch/" -print_final_stats=1 "$scratch" 2>"$work/$name.log"; then
    echo "FAILED: $name (log: $work/$name.log)"
    tail -n 40 "$work/$name.log"
    status=1
  else
    grep -E '^(#[0-9]+.*DONE|stat::number_of_executed_units)' "$work/$name.log" | tail -n 2
  fi
done
exit $status
