#!/usr/bin/env bash
# Builds the fuzz targets with clang and libFuzzer (ASan+UBSan, in build-fuzz/) and runs each one:
#   scripts/fuzz.sh                 30 seconds per target (what CI runs)
#   scripts/fuzz.sh 600             600 seconds per target
#   scripts/fuzz.sh --runs 1000000  a million executions per target
#   scripts/fuzz.sh ... model_json  only the named targets
# Each target starts from its seeds and past findings in fuzz/corpus/<name> and grows a working
# corpus in build-fuzz/corpus/<name>. An input that crashes is kept in build-fuzz/findings/<name>/;
# once fixed, copy it into fuzz/corpus/<name>/ so that every build replays it from then on. What
# went wrong, with each crashing input in base64, is also left in build-fuzz/problems.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
limit=(-max_total_time=30)
targets=()
while [ $# -gt 0 ]; do
  case "$1" in
    --runs) limit=(-runs="${2:?--runs needs a count}"); shift 2 ;;
    [0-9]*) limit=(-max_total_time="$1"); shift ;;
    *) targets+=("$1"); shift ;;
  esac
done
[ ${#targets[@]} -eq 0 ] && targets=(model_json model_attributes wav_injection manifest)

mkdir -p build-fuzz
rm -f build-fuzz/problems.txt
bash scripts/setup.sh >/dev/null
echo "fuzz: building the targets (build-fuzz/)"
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DWWS_FUZZ=ON -DWWS_BUILD_TESTS=OFF \
  -DWWS_SANITIZE=address,undefined -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-fuzz -j "$(nproc 2>/dev/null || echo 2)" \
  --target "${targets[@]/#/fuzz_}" >/dev/null

status=0
for name in "${targets[@]}"; do
  options=()
  case "$name" in
    model_json|model_attributes) options=(-dict=fuzz/json.dict -max_len=2048) ;;
    # libsndfile prints notes on stderr for every malformed MPEG frame; they only slow the run
    # (libFuzzer keeps its own and the sanitizers' reports on a copy of stderr).
    wav_injection) options=(-max_len=8192 -close_fd_mask=2) ;;
    manifest) options=(-max_len=4096) ;;
  esac
  corpus=build-fuzz/corpus/$name findings=build-fuzz/findings/$name
  mkdir -p "$corpus" "$findings"
  log=build-fuzz/$name.log
  echo "fuzz: $name: running (${limit[0]#-})"
  ls "$findings" >"$log.before"
  if ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
     "build-fuzz/fuzz/fuzz_$name" "${limit[@]}" "${options[@]}" -print_final_stats=1 \
       -artifact_prefix="$findings/" "$corpus" "fuzz/corpus/$name" >"$log" 2>&1; then
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    echo "fuzz: $name: $runs executions, no finding (corpus $(ls "$corpus" | wc -l) inputs)"
  else
    status=1
    # CI keeps only this output, not the tree: the reason and the input itself go in the report.
    {
      echo "fuzz: $name: FOUND A PROBLEM; full output in $log"
      { grep -E '^(==[0-9]+==ERROR|SUMMARY|fuzz check failed|==[0-9]+== ERROR: libFuzzer)' "$log" ||
          echo "(no error line: see the log)"; } | head -3 | sed 's/^/  /'
      for unit in $(ls "$findings" | grep -vxF -f "$log.before" || true); do
        echo "  input $findings/$unit, $(stat -c %s "$findings/$unit") bytes, as base64:"
        base64 -w 100 "$findings/$unit" | sed 's/^/    /'
      done
    } | tee -a build-fuzz/problems.txt >&2
  fi
done
exit $status
