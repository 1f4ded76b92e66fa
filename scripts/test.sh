#!/usr/bin/env bash
# Builds and runs the whole test suite: a normal build, an ASan+UBSan build, a TSan build, a 32-bit
# ARM cross build whose native tests run under qemu-arm, a short run of every fuzz target, and the
# normal build's tests once more on a machine kept busy. Installs what it needs first
# (scripts/setup.sh). Every variant runs even when one before it failed; the run ends with one line
# per variant (passed, or what failed) and exits non-zero if any failed.
#   scripts/test.sh                 all of them
#   scripts/test.sh default         only the normal build (also: asan, tsan, arm, fuzz, stress)
#   scripts/test.sh stress [N]      the normal build's tests N times (default 1) while every core
#                                   is kept busy by stress-ng
set -uo pipefail
cd "$(dirname "$0")/.."

variants=()
repeats=1
while [ $# -gt 0 ]; do
  case "$1" in
    default|asan|tsan|arm|fuzz|stress) variants+=("$1") ;;
    [0-9]*) repeats=$1 ;;
    *) echo "test.sh: unknown variant '$1' (default, asan, tsan, arm, fuzz, stress [N])" >&2
       exit 2 ;;
  esac
  shift
done
[ ${#variants[@]} -eq 0 ] && variants=(default asan tsan arm fuzz stress)

setup=(test)
for variant in "${variants[@]}"; do [ "$variant" = arm ] && setup+=(arm); done
bash scripts/setup.sh "${setup[@]}" || { echo "test.sh: setup failed" >&2; exit 1; }

jobs=$(nproc 2>/dev/null || echo 2)
# The checking builds leave out the benchmarks (they time nothing there) and keep only line
# tables for their reports: a full CI run builds the tree five times on two cores.
lean=(-DWWS_BUILD_BENCH=OFF "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1")
start=$SECONDS
summary=()
elapsed() { echo "$(( (SECONDS - start) / 60 )) min $(( (SECONDS - start) % 60 )) s"; }

# Configures and builds one variant's tree; prints why when it fails.
build() {
  local dir=$1 sanitize=$2
  shift 2
  cmake -S . -B "$dir" -DWWS_SANITIZE="$sanitize" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DWWS_BUILD_TESTS=ON "$@" \
    >/dev/null && cmake --build "$dir" -j "$jobs"
}

# Runs a tree's tests; on failure leaves the failed tests' names in $failed.
failed=""
run_tests() {
  local dir=$1
  shift
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 \
  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/tests/tsan.supp" \
    ctest --test-dir "$dir" -j "$jobs" --output-on-failure "$@" && return 0
  failed=$(cut -d: -f2 "$dir/Testing/Temporary/LastTestsFailed.log" 2>/dev/null | paste -sd' ')
  return 1
}

# The normal build's tests with every core kept busy by processes that compete for the CPU at the
# same priority: what a loaded CI machine does to timing. stress-ng stops by itself after an hour.
stress() {
  local passes=0 failures=""
  build build "" || { summary+=("stress: FAILED to build"); return; }
  stress-ng --cpu "$jobs" --timeout 3600 --quiet &
  local hog=$!
  for ((pass = 1; pass <= repeats; pass++)); do
    echo "== stress pass $pass of $repeats ($step), every core busy, at $(elapsed)"
    if run_tests build; then
      passes=$((passes + 1))
    else
      failures+=" pass $pass: $failed;"
    fi
  done
  kill "$hog" 2>/dev/null
  wait "$hog" 2>/dev/null
  if [ "$passes" -eq "$repeats" ]; then summary+=("stress: passed $passes of $repeats passes")
  else summary+=("stress: FAILED in$failures"); fi
}

number=0
for variant in "${variants[@]}"; do
  number=$((number + 1))
  step="variant $number of ${#variants[@]}"
  extra=()
  case "$variant" in
    default) dir=build;      sanitize="" ;;
    asan)    dir=build-asan; sanitize="address,undefined"; extra=("${lean[@]}") ;;
    tsan)    dir=build-tsan; sanitize="thread"; extra=("${lean[@]}") ;;
    arm)     dir=build-arm;  sanitize=""
             extra=(-DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake "${lean[@]}") ;;
    fuzz)    echo "== fuzz ($step, 30 s per target) at $(elapsed)"
             if bash scripts/fuzz.sh 30; then summary+=("fuzz: passed")
             else
               summary+=("fuzz: FAILED")
               # the summary is what a truncated CI log still shows
               while IFS= read -r line; do summary+=("$line"); done \
                 < <(cat build-fuzz/problems.txt 2>/dev/null || echo "  (no report: see above)")
             fi
             continue ;;
    stress)  stress; continue ;;
  esac
  echo "== $variant build ($step, in $dir) at $(elapsed)"
  if ! build "$dir" "$sanitize" ${extra[@]+"${extra[@]}"}; then
    summary+=("$variant: FAILED to build")
    continue
  fi
  echo "== $variant tests ($step) at $(elapsed)"
  if run_tests "$dir"; then summary+=("$variant: passed")
  else summary+=("$variant: FAILED: $failed"); fi
done

echo "== summary after $(elapsed)"
status=0
for line in "${summary[@]}"; do
  echo "$line"
  case "$line" in *FAILED*) status=1 ;; esac
done
exit $status
