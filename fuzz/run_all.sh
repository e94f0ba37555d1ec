#!/usr/bin/env bash
# Builds every fuzz target with clang and runs each for BUDGET_SECONDS (default 60), one after
# the other, from its seed corpus in fuzz/corpus/<target>/. A crash, sanitizer report, hang
# (an execution longer than TIMEOUT_SECONDS) or memory blow-up fails the script; the log then
# names the reproducer and prints it in base64 and hex.
#
#   fuzz/run_all.sh [BUDGET_SECONDS]
#   env: METROFIT_FUZZ_BUILD (build dir, default build/fuzz), METROFIT_FUZZ_TIMEOUT (60),
#        METROFIT_FUZZ_ARTIFACTS (where reproducers go, default <build>/artifacts)
set -uo pipefail
cd "$(dirname "$0")/.."

budget=${1:-60}
build=${METROFIT_FUZZ_BUILD:-build/fuzz}
# Seconds one execution may take: the slowest legitimate inputs (a fit of 3000 points, or a
# multi-start fit of 300: seconds under the sanitizers and coverage on a loaded machine) stay
# well below it; a hang never ends.
timeout=${METROFIT_FUZZ_TIMEOUT:-60}
artifacts=${METROFIT_FUZZ_ARTIFACTS:-$build/artifacts}

cmake -S fuzz -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null ||
  exit 1
cmake --build "$build" -j2 || exit 1

mkdir -p "$artifacts"
export ASAN_OPTIONS=${ASAN_OPTIONS:-abort_on_error=1:detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

failed=()
for corpus in fuzz/corpus/*/; do
  target=$(basename "$corpus")
  binary="$build/$target"
  if [ ! -x "$binary" ]; then
    echo "fuzz: no binary for the corpus $corpus" >&2
    failed+=("$target")
    continue
  fi
  # The run adds what it finds to a scratch copy: the committed corpus stays as it is.
  work=$(mktemp -d)
  cp -r "$corpus". "$work"/
  echo "=== $target: ${budget} s"
  log="$artifacts/$target.log"
  "$binary" "$work" -max_total_time="$budget" -timeout="$timeout" -rss_limit_mb=2048 \
    -max_len=4096 -print_final_stats=1 -artifact_prefix="$artifacts/$target-" >"$log" 2>&1
  rc=$?
  grep -E '^#[0-9]+[[:space:]]+DONE|^stat::(number_of_executed_units|average_exec_per_sec|peak_rss_mb)' \
    "$log" | sed "s/^/$target: /"
  if [ $rc -ne 0 ]; then
    failed+=("$target")
    echo "fuzz: $target FAILED (exit $rc); the end of its log:"
    tail -n 60 "$log"
    for repro in "$artifacts/$target-"*; do
      [ -f "$repro" ] || continue
      case "$repro" in *.log) continue ;; esac
      echo "reproducer: $repro ($(stat -c %s "$repro") bytes)"
      echo "replay: $binary $repro"
      echo "base64:"
      base64 -w 76 "$repro"
      echo "hex:"
      od -An -tx1 -v "$repro" | head -n 64
    done
  fi
  rm -rf "$work"
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: failures in ${failed[*]}"
  exit 1
fi
echo "fuzz: every target ran ${budget} s without a finding"
