#!/usr/bin/env bash
# The long forms of the soak and lifecycle tests, with their figures printed:
#   scripts/soak.sh [buffers] [cycles]     defaults: 1000000 buffers per path, 1000 services
# Builds the normal build first (build/). The suite itself runs shorter forms of both.
set -euo pipefail
cd "$(dirname "$0")/.."
buffers=${1:-1000000}
cycles=${2:-1000}
bash scripts/setup.sh >/dev/null
echo "soak: building (build/)"
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DWWS_BUILD_TESTS=ON >/dev/null
cmake --build build -j "$(nproc 2>/dev/null || echo 2)" >/dev/null
echo "soak: $buffers buffers per path, then $cycles services; each test prints its figures when it ends"
WWS_JVM_OPTIONS="-Dsoak.buffers=$buffers -Dsoak.report=true -Dleak.cycles=$cycles" \
  ctest --test-dir build -R '^Java\.(SoakTest|LifecycleLeakTest)$' -V --timeout 3600 |
  grep --line-buffered -E 'soak:|leak:|Test +#|tests passed|tests failed' | sed -u -E 's/^[0-9]+: //'
