#!/usr/bin/env bash
# Builds and runs the whole test suite: a normal build, an ASan+UBSan build, a TSan build, a 32-bit
# ARM cross build whose native tests run under qemu-arm, and a short run of every fuzz target.
# Installs what it needs first (scripts/setup.sh). Exits non-zero on the first failure.
#   scripts/test.sh            all of them
#   scripts/test.sh default    only the normal build (also: asan, tsan, arm, fuzz)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh arm

jobs=$(nproc 2>/dev/null || echo 2)
variants=("$@")
[ ${#variants[@]} -eq 0 ] && variants=(default asan tsan arm fuzz)

# The checking builds leave out the benchmarks (they time nothing there) and keep only line
# tables for their reports: a full CI run builds the tree five times on two cores.
lean=(-DWWS_BUILD_BENCH=OFF "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1")
start=$SECONDS
for variant in "${variants[@]}"; do
  extra=()
  case "$variant" in
    default) dir=build;      sanitize="" ;;
    asan)    dir=build-asan; sanitize="address,undefined"; extra=("${lean[@]}") ;;
    tsan)    dir=build-tsan; sanitize="thread"; extra=("${lean[@]}") ;;
    arm)     dir=build-arm;  sanitize=""
             extra=(-DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake "${lean[@]}") ;;
    fuzz)    echo "== fuzz (30 s per target) at $(( (SECONDS - start) / 60 )) min"
             bash scripts/fuzz.sh 30; continue ;;
    *) echo "unknown variant: $variant" >&2; exit 2 ;;
  esac
  echo "== $variant build ($dir) at $(( (SECONDS - start) / 60 )) min"
  cmake -S . -B "$dir" -DWWS_SANITIZE="$sanitize" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    ${extra[@]+"${extra[@]}"} >/dev/null
  cmake --build "$dir" -j "$jobs"
  echo "== $variant tests"
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 \
  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/tests/tsan.supp" \
    ctest --test-dir "$dir" -j "$jobs" --output-on-failure
done
echo "== all passed in $(( (SECONDS - start) / 60 )) min $(( (SECONDS - start) % 60 )) s"
