#!/usr/bin/env bash
# Builds the libFuzzer harnesses of fuzz/ with clang 14 (AddressSanitizer + UBSan) in build-fuzz/ and runs
# each one for SECONDS (default 60), starting from its seeds in fuzz/corpus/ plus what earlier runs found
# (build-fuzz/corpus/), with fuzz/HARNESS.dict or else the JSON dictionary. A finding stops the run: its
# input is left in build-fuzz/findings/ and the script exits 1.
#   scripts/fuzz.sh [SECONDS] [HARNESS...]
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-60}"
shift || true
harnesses=("$@")
[ ${#harnesses[@]} -gt 0 ] || harnesses=(archive mapping request_descriptions request_paths reply_path http1_reply)
jobs=$(nproc 2>/dev/null || echo 2)

echo "fuzz: building the harnesses in build-fuzz/"
# -O1 with line tables and unity sources, as the sanitizer builds of scripts/test.sh: what the sanitizers advise,
# and a shorter build.
cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DCMAKE_CXX_COMPILER=clang++-14 \
  "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG" -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=16 \
  -DVLMSDK_SANITIZE=fuzzer-no-link,address,undefined -DVLMSDK_BUILD_FUZZ=ON \
  -DVLMSDK_BUILD_TESTS=OFF -DVLMSDK_BUILD_TOOLS=OFF -DVLMSDK_BUILD_BENCH=OFF >/dev/null
cmake --build build-fuzz -j"$jobs" --target vlmsdk-fuzz

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
mkdir -p build-fuzz/findings
printf '%-22s %14s %10s %8s\n' harness executions exec/s corpus
for harness in "${harnesses[@]}"; do
  corpus="build-fuzz/corpus/$harness"
  mkdir -p "$corpus"
  log="build-fuzz/$harness.log"
  dict=fuzz/json.dict
  [ -f "fuzz/$harness.dict" ] && dict="fuzz/$harness.dict"
  if ! "build-fuzz/fuzz/fuzz_$harness" -max_total_time="$seconds" -dict="$dict" -print_final_stats=1 \
      -artifact_prefix="build-fuzz/findings/$harness-" "$corpus" "fuzz/corpus/$harness" >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    echo "fuzz: $harness found a failure; its input is in build-fuzz/findings/" >&2
    exit 1
  fi
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
  files=$(find "$corpus" -type f | wc -l)
  printf '%-22s %14s %10s %8s\n' "$harness" "$executions" "$rate" "$files"
done
