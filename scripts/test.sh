#!/usr/bin/env bash
# Builds the project and runs every test.
#   scripts/test.sh                                   plain build in build/
#   scripts/test.sh --sanitize address,undefined      AddressSanitizer + UBSan build in build-asan/
#   scripts/test.sh --sanitize thread [-R REGEX]      ThreadSanitizer build in build-tsan/, tests matching REGEX
#   scripts/test.sh --arch arm64                      the core, the kit and their suites cross-built for 64-bit
#                                                     ARM in build-arm64/ and run under qemu-user
set -euo pipefail
cd "$(dirname "$0")/.."

sanitize=""
arch=""
filter=()
while [ $# -gt 0 ]; do
  case "$1" in
    --sanitize) sanitize="$2"; shift 2 ;;
    --arch) arch="$2"; shift 2 ;;
    -R) filter=(-R "$2"); shift 2 ;;
    *) echo "usage: $0 [--sanitize address,undefined|thread] [--arch arm64] [-R regex]" >&2; exit 2 ;;
  esac
done

# The plain build is the Release build a packager makes. The sanitizer builds use -O1 with line tables
# (what the sanitizers advise; a third of the -O2 -g build time) and leave the benchmarks out.
extra=()
case "$sanitize" in
  "") dir=build; type=Release ;;
  thread) dir=build-tsan; type=RelWithDebInfo ;;
  *) dir=build-asan; type=RelWithDebInfo ;;
esac
# The arm64 build leaves out what runs as separate processes of the build machine's own (the local service,
# the tool and the suites that start them): qemu-user runs one program, not the programs it starts.
if [ -n "$arch" ]; then
  if [ "$arch" != arm64 ] || [ -n "$sanitize" ]; then
    echo "test.sh: --arch takes arm64, without --sanitize" >&2
    exit 2
  fi
  if ! command -v aarch64-linux-gnu-g++ >/dev/null || ! command -v qemu-aarch64 >/dev/null; then
    echo "test.sh: the arm64 cross compiler or qemu-user is missing: run ./scripts/setup.sh --tests first" >&2
    exit 1
  fi
  dir=build-arm64
  # -O1: the build, not the emulated run, is what costs CI its minutes.
  extra=("-DCMAKE_TOOLCHAIN_FILE=$PWD/cmake/toolchains/aarch64-linux-gnu.cmake" -DVLMSDK_BUILD_TOOLS=OFF
    -DVLMSDK_BUILD_BENCH=OFF "-DVLMSDK_SKIP_TEST_DIRS=sandbox;e2e;tools" "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -DNDEBUG")
fi
if [ -n "$sanitize" ]; then
  extra=(-DVLMSDK_BUILD_BENCH=OFF "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG")
fi
# The address build links the libraries shared (-DBUILD_SHARED_LIBS=ON): the whole suite runs on the .so
# files a host may link, with their SONAMEs.
if [ "$sanitize" = address,undefined ]; then
  extra+=(-DBUILD_SHARED_LIBS=ON)
fi
# The thread build is also the one on the portable POSIX calls (a pipe for wake-ups): the fallback a system
# without Linux's own calls gets is tested where threads meet it.
if [ "$sanitize" = thread ]; then
  extra+=(-DVLMSDK_PORTABLE_POSIX=ON)
fi

# The sanitizer and arm64 builds compile each target as a few unity sources (16 files each): most of a file's
# time is spent on the same headers (the JSON library, GoogleTest), and CI's two cores build them far sooner
# so. The plain build stays one object per file, as a packager builds it, so that a file that only compiles
# beside another is caught there.
if [ -n "$sanitize" ] || [ -n "$arch" ]; then
  extra+=(-DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=16)
fi

jobs=$(nproc 2>/dev/null || echo 2)
log="$(mktemp)"
trap 'rm -f "$log"' EXIT
if ! cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE="$type" -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
  -DVLMSDK_BUILD_TESTS=ON -DVLMSDK_SANITIZE="$sanitize" "${extra[@]}" >"$log" 2>&1; then
  cat "$log" >&2
  if grep -qE "Could NOT find (GTest|benchmark|cpprestsdk)|Could not find a package configuration file provided by \"(GTest|benchmark|cpprestsdk)" "$log"; then
    echo "test.sh: the test libraries are missing: run ./scripts/setup.sh --tests first" >&2
  else
    echo "test.sh: configuring $dir/ failed" >&2
  fi
  exit 1
fi
cmake --build "$dir" -j"$jobs"

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/tests/tsan.supp}"
log="$dir/ctest.log"  # the run, kept for a look afterwards
ctest --test-dir "$dir" --output-on-failure -j"$jobs" "${filter[@]}" | tee "$log"
# A test that skips itself hides a missing tool: it fails the run like a test that fails.
if grep -q "tests did not run" "$log"; then
  echo "test.sh: some tests did not run (skipped): install what they need with scripts/setup.sh --tests" >&2
  exit 1
fi
