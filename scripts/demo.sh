#!/usr/bin/env bash
# Builds the command-line tool and walks one guest's stay against the embedded local reservation service.
# Extra arguments go to the tool (e.g. --json, or --base-url URL --token T for a real service).
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs" --target vlmsdk-pms >/dev/null
exec ./build/tools/vlmsdk-pms/vlmsdk-pms demo "$@"
