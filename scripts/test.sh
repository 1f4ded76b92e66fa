#!/usr/bin/env bash
# Builds and runs the whole test suite three times: a normal build, an ASan+UBSan build and a TSan
# build. Installs what it needs first (scripts/setup.sh). Exits non-zero on the first failure.
#   scripts/test.sh            all three builds
#   scripts/test.sh default    only the normal build (also: asan, tsan)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh

jobs=$(nproc 2>/dev/null || echo 2)
variants=("$@")
[ ${#variants[@]} -eq 0 ] && variants=(default asan tsan)

for variant in "${variants[@]}"; do
  case "$variant" in
    default) dir=build;      sanitize="" ;;
    asan)    dir=build-asan; sanitize="address,undefined" ;;
    tsan)    dir=build-tsan; sanitize="thread" ;;
    *) echo "unknown variant: $variant" >&2; exit 2 ;;
  esac
  echo "== $variant build ($dir)"
  cmake -S . -B "$dir" -DWWS_SANITIZE="$sanitize" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$dir" -j "$jobs"
  echo "== $variant tests"
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 \
  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/tests/tsan.supp" \
    ctest --test-dir "$dir" -j "$jobs" --output-on-failure
done
