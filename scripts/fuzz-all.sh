#!/usr/bin/env bash
# One fuzz round: every libFuzzer target in build-fuzz/bin (or the ones
# named), one after another, each a single process for SECONDS seconds,
# starting from its committed corpus fuzz/corpus/<name>/ and the inputs earlier
# rounds found in build-fuzz/corpus/<name>/ (where new ones go).
#
#   scripts/fuzz-all.sh SECONDS [name ...]      (make fuzz-all SECONDS=N)
#
# A crash, timeout, out-of-memory or leak ends libFuzzer's run; the target is
# started again for the rest of its time, so one round can find several (at
# most FUZZ_MAX_FINDINGS, 10 by default: past that, fix first).
# Each finding is kept under build-fuzz/findings/<name>/ and, at the end of
# the target's turn, copied into fuzz/corpus/<name>/ as a regression input
# (the replay under `make test` fails on it until the fault is fixed).
# Prints one line per target: runs, runs per second of wall time and per
# second of the target's own CPU time (on a shared machine the second is
# the one to compare), coverage (edges) at the start and the end, inputs
# added to the working corpus, findings. Exits 1 when
# anything was found or an input of the corpora already fails.
set -uo pipefail
TIMEFORMAT='%U %S'  # what `time` below writes: the fuzzer's user and system CPU seconds

root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:?usage: fuzz-all.sh SECONDS [name ...]}
shift
bin=$root/build-fuzz/bin
timeout=${FUZZ_TIMEOUT:-25}  # seconds one input may take before it counts as a hang
rss=${FUZZ_RSS_MB:-2048}
maxFindings=${FUZZ_MAX_FINDINGS:-10}

# The Makefile passes the same; fuzz/lsan.supp says why the unwinding is full.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:fast_unwind_on_malloc=0}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$root/fuzz/lsan.supp:print_suppressions=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}

if (($# > 0)); then
  names=("$@")
else
  names=()
  for f in "$bin"/*_fuzz; do
    [[ -x $f ]] && names+=("$(basename "${f%_fuzz}")")
  done
fi
((${#names[@]})) || { echo "no fuzz targets in $bin (run make fuzz)" >&2; exit 2; }

# The value of `key` in the last libFuzzer line of a log that has one.
last_stat() { grep -o "$2: *[0-9]*" "$1" | tail -n 1 | grep -o '[0-9]*$'; }

status=0
for name in "${names[@]}"; do
  fuzzer=$bin/${name}_fuzz
  seeds=$root/fuzz/corpus/$name
  work=$root/build-fuzz/corpus/$name
  findings=$root/build-fuzz/findings/$name
  logs=$root/build-fuzz/logs/$name
  mkdir -p "$seeds" "$work" "$findings" "$logs"
  rm -f "$logs"/run-*
  touch "$logs/started"

  start=$(date +%s)
  deadline=$((start + seconds))
  runs=0 cpu=0 added=0 found=0 attempt=0 covStart="" covEnd="" broken=""
  while :; do
    left=$((deadline - $(date +%s)))
    ((left > 0)) || break
    log=$logs/run-$attempt.log
    { time "$fuzzer" -max_total_time="$left" -timeout="$timeout" -rss_limit_mb="$rss" -print_final_stats=1 \
      -artifact_prefix="$findings/" "$work" "$seeds" >"$log" 2>&1; } 2>"$log.cpu"
    rc=$?
    cpu=$(awk -v c="$cpu" '{ print c + $1 + $2 }' "$log.cpu")
    if ! grep -q "INITED" "$log"; then
      broken=$log  # an input of the corpora fails before fuzzing starts
      break
    fi
    [[ -n $covStart ]] || covStart=$(grep -o "INITED cov: [0-9]*" "$log" | grep -o '[0-9]*$')
    covEnd=$(last_stat "$log" "cov")
    runs=$((runs + $(last_stat "$log" "stat::number_of_executed_units" || echo 0)))
    added=$((added + $(last_stat "$log" "stat::new_units_added" || echo 0)))
    ((rc == 0)) && break
    found=$((found + 1))
    attempt=$((attempt + 1))
    ((found < maxFindings)) || break
  done
  elapsed=$(($(date +%s) - start))
  ((elapsed > 0)) || elapsed=1

  if [[ -n $broken ]]; then
    printf '%-12s a corpus input fails before fuzzing starts: see %s\n' "$name" "$broken"
    status=1
    continue
  fi
  # This round's findings become regression inputs under their libFuzzer
  # names (crash-, timeout-, oom-, leak- + the input's SHA-1).
  find "$findings" -type f -newer "$logs/started" \
    \( -name 'crash-*' -o -name 'timeout-*' -o -name 'oom-*' -o -name 'leak-*' \) -exec cp -n {} "$seeds/" \;
  perCpu=$(awk -v r="$runs" -v c="$cpu" 'BEGIN { print int(r / (c > 0 ? c : 1)) }')
  printf '%-12s runs %9d  runs/s %6d  per CPU s %6d  coverage %5s -> %-5s  new inputs %5d  findings %d\n' \
    "$name" "$runs" $((runs / elapsed)) "$perCpu" "${covStart:-?}" "${covEnd:-?}" "$added" "$found"
  ((found == 0)) || status=1
done
exit $status
