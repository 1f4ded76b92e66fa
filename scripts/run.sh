#!/usr/bin/env bash
# Builds the library and runs the host program on the fake engine.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc 2>/dev/null || echo 2)" --target wakeword_demo
exec ./build/wakeword_demo "$@"
