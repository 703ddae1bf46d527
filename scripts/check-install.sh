#!/usr/bin/env bash
# Checks that every C++ block of README.md is a program of examples/, word for word; installs the kit into a
# temporary prefix, builds examples/ against the installed package (CMake package and pkg-config file), the
# Qt and Asio host programs included, and runs the programs against a pms-sandbox started on an ephemeral port;
# builds the view model test against the Testing component (CMake and pkg-config) and runs it, as it is and with
# a changed reply, which must fail; runs the outbox example against a closed port, then against the pms-sandbox.
#   scripts/check-install.sh [BUILD_DIR]     default: build (configured as scripts/test.sh does if new)
# A build of shared libraries (-DBUILD_SHARED_LIBS=ON, as scripts/abi-check.sh makes in build-abi) is checked
# the same way, its programs run on the installed .so files. A build without the tools takes the local service
# from build/.
# JOBS sets the build parallelism (default: all cores). The build must not be a sanitizer build.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "$root" && mkdir -p "${1:-build}" && cd "${1:-build}" && pwd)"
jobs="${JOBS:-$(nproc 2>/dev/null || echo 2)}"

work="$(mktemp -d)"
sandbox_pid=""
cleanup() {
  if [ -n "$sandbox_pid" ]; then kill "$sandbox_pid" 2>/dev/null || true; wait "$sandbox_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
say() { echo "check-install: $*"; }
fail() { echo "check-install: FAILED: $*" >&2; exit 1; }

# The README shows each program whole, under a line that names its file: extract each block and compare.
say "checking that README.md shows the examples/ programs as they are"
mkdir -p "$work/readme"
awk -v out="$work/readme" '
  /^```cpp$/ {
    inblock = 1
    if (match(last, /examples\/[A-Za-z0-9_]+\.cpp/)) { file = out "/" substr(last, RSTART + 9, RLENGTH - 9); printf "" > file }
    else { print "README.md:" NR ": a C++ block under a line that names no examples/ file" > "/dev/stderr"; bad = 1 }
    next
  }
  inblock && /^```$/ { inblock = 0; if (file != "") close(file); file = ""; next }
  inblock { if (file != "") print > file; next }
  NF { last = $0 }
  END { exit bad }
' "$root/README.md" || fail "README.md has a C++ block that is no examples/ program"
for shown in "$work"/readme/*.cpp; do
  [ -f "$shown" ] || continue
  diff -u "$root/examples/$(basename "$shown")" "$shown" >&2 || fail "README.md and examples/$(basename "$shown") differ"
done
for program in "$root"/examples/readme_*.cpp; do
  [ -f "$work/readme/$(basename "$program")" ] || fail "README.md does not show examples/$(basename "$program")"
done

if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_COMPILE_WARNING_AS_ERROR=ON >/dev/null
fi
cmake --build "$build" -j"$jobs" --target VLMErrors VLMMeta VLMSDKCoreKit VLMSDKPaymentKit VLMSDKPMSKit VLMSDKPMSKitTesting \
  >/dev/null
sandbox_build="$build"
if grep -q '^VLMSDK_BUILD_TOOLS:BOOL=OFF' "$build/CMakeCache.txt"; then
  sandbox_build="$root/build"
  [ -f "$sandbox_build/CMakeCache.txt" ] || cmake -S "$root" -B "$sandbox_build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DVLMSDK_BUILD_TESTS=OFF -DVLMSDK_BUILD_BENCH=OFF >/dev/null
fi
cmake --build "$sandbox_build" -j"$jobs" --target pms-sandbox >/dev/null

prefix="$work/prefix"
say "installing into $prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null
if ls "$prefix"/lib/libVLMSDKPMSKit.so.* >/dev/null 2>&1; then
  # Programs built with pkg-config's flags carry no run path: the loader finds the installed libraries here.
  say "shared libraries: $(cd "$prefix/lib" && ls libVLMSDKPMSKit.so.* | tr '\n' ' ')"
  export LD_LIBRARY_PATH="$prefix/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
fi

say "checking that find_package(VLMSDKPMSKit) refuses a component it does not have"
mkdir -p "$work/component"
printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' 'project(ComponentCheck LANGUAGES CXX)' \
  'find_package(VLMSDKPMSKit REQUIRED COMPONENTS Nonsense)' >"$work/component/CMakeLists.txt"
if cmake -S "$work/component" -B "$work/component/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >"$work/component.log" 2>&1; then
  fail "find_package(VLMSDKPMSKit COMPONENTS Nonsense) succeeded"
fi
grep -q 'no component "Nonsense"' "$work/component.log" ||
  fail "find_package did not name the unknown component: $(cat "$work/component.log")"

say "building examples/ with find_package(VLMSDKPMSKit COMPONENTS Testing)"
cmake -S "$root/examples" -B "$work/example" -G Ninja -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/example" >/dev/null
cmake_example="$work/example/host_example"
for program in qt_host asio_host; do
  [ -x "$work/example/$program" ] ||
    fail "examples/$program.cpp was not built: its event loop's library is missing (scripts/setup.sh --examples)"
done

say "building examples/host_example.cpp with pkg-config vlmsdk-pmskit"
pc_flags="$(PKG_CONFIG_PATH="$prefix/lib/pkgconfig:$prefix/share/pkgconfig" pkg-config --cflags --libs vlmsdk-pmskit)" ||
  fail "pkg-config does not know vlmsdk-pmskit"
# shellcheck disable=SC2086 # the flags are meant to split
"${CXX:-c++}" "$root/examples/host_example.cpp" -o "$work/host_example_pc" $pc_flags ||
  fail "host_example does not build with: $pc_flags"
pc_example="$work/host_example_pc"

say "building examples/view_model_test.cpp with pkg-config vlmsdk-pmskit-testing"
pc_testing_flags="$(PKG_CONFIG_PATH="$prefix/lib/pkgconfig:$prefix/share/pkgconfig" \
  pkg-config --cflags --libs vlmsdk-pmskit-testing)" || fail "pkg-config does not know vlmsdk-pmskit-testing"
# shellcheck disable=SC2086 # the flags are meant to split
"${CXX:-c++}" "$root/examples/view_model_test.cpp" "$root/examples/StayViewModel.cpp" -o "$work/view_model_test_pc" \
  $pc_testing_flags || fail "view_model_test does not build with: $pc_testing_flags"

# The view model's test needs no service: its replies are scripted. With --changed-reply its script no longer
# fits the view model, so it must fail and say what it expected.
for program in "$work/example/view_model_test" "$work/view_model_test_pc"; do
  say "running $(basename "$program")"
  out="$("$program" 2>&1)" || fail "$program exited $?: $out"
  while IFS= read -r line; do echo "  $line"; done <<<"$out"
  grep -q '^view_model_test: all passed$' <<<"$out" || fail "$program did not say that every check passed"
  if out="$("$program" --changed-reply 2>&1)"; then
    fail "$program --changed-reply passed: $out"
  fi
  grep -q '1\. GET guest/reservations/rsv_0413' <<<"$out" ||
    fail "$program --changed-reply did not list the expected request: $out"
done
say "view_model_test --changed-reply fails as it should, listing GET guest/reservations/rsv_0413"

"$sandbox_build/tools/pms-sandbox/pms-sandbox" --port 0 --in-memory >"$work/sandbox.log" 2>&1 &
sandbox_pid=$!
url=""
for _ in $(seq 1 100); do
  url="$(sed -n 's/.*listening on \(http[^[:space:]]*\).*/\1/p' "$work/sandbox.log")"
  [ -n "$url" ] && break
  kill -0 "$sandbox_pid" 2>/dev/null || fail "pms-sandbox exited: $(cat "$work/sandbox.log")"
  sleep 0.1
done
[ -n "$url" ] || fail "pms-sandbox never said where it listens"
say "pms-sandbox listening on $url"

# check_host PROGRAM PATTERN...: PROGRAM prints a line matching each pattern, and fails with a wrong token.
check_host() {
  local program="$1" out pattern
  shift
  out="$("$program" "$url" sandbox-token rsv_0003)" || fail "$program exited $? against $url"
  while IFS= read -r line; do echo "  $line"; done <<<"$out"
  for pattern in "$@"; do
    grep -q "$pattern" <<<"$out" || fail "$program did not print a line matching: $pattern"
  done
  if "$program" "$url" wrong-token rsv_0003 >/dev/null 2>&1; then
    fail "$program succeeded with a wrong token"
  fi
}
reservation_line='^Reservation rsv_0003: status in_house'
folio_line='^Folio fol_0003: 4 posting(s)'
for example in "$cmake_example" "$pc_example" "$work/example/asio_host"; do
  check_host "$example" "$reservation_line" "$folio_line"
done
check_host "$work/example/qt_host" "$reservation_line"
for program in "$work"/example/readme_*; do
  [ -f "$program" ] && [ -x "$program" ] || continue
  name="$(basename "$program")"
  out="$("$program" "$url" sandbox-token rsv_0003)" || fail "$name exited $? against $url"
  while IFS= read -r line; do echo "  $line"; done <<<"$out"
  grep -q 'HLI-48240' <<<"$out" || fail "$name did not print the reservation (booking HLI-48240)"
  if "$program" "$url" wrong-token rsv_0003 >/dev/null 2>&1; then
    fail "$name succeeded with a wrong token"
  fi
done
# The telemetry adapter: two spans under one trace, route templates only, and the service's log names the trace.
spans="$work/spans.jsonl"
out="$("$work/example/telemetry_spans" "$url" sandbox-token rsv_0003 "$spans")" || fail "telemetry_spans exited $?"
echo "  $out"
trace="$(sed -n 's/^Trace \([0-9a-f]\{32\}\): .*/\1/p' <<<"$out")"
[ -n "$trace" ] || fail "telemetry_spans did not name its trace"
[ "$(grep -c "\"traceId\":\"$trace\"" "$spans")" = 2 ] || fail "telemetry_spans did not write two spans of trace $trace"
grep -q 'guest/reservations/{id}/folio' "$spans" || fail "the spans do not name the folio's route template"
if grep -q 'rsv_0003' "$spans"; then fail "a span holds the reservation's identifier"; fi
[ "$(grep -c "trace $trace" "$work/sandbox.log")" = 2 ] || fail "the service's log does not name trace $trace twice"
# The outbox: a check-out queued with no service to take it waits in the file; run again with the service there, it
# is done. Last, since it checks rsv_0003 out.
outbox="$work/outbox.db"
out="$("$work/example/offline_checkout" "$outbox" http://127.0.0.1:9/ sandbox-token rsv_0003)" ||
  fail "offline_checkout exited $? against a closed port: $out"
while IFS= read -r line; do echo "  $line"; done <<<"$out"
grep -qxF "Offline: item 1 waits in $outbox" <<<"$out" || fail "offline_checkout did not say that item 1 waits"
out="$("$work/example/offline_checkout" "$outbox" "$url" sandbox-token rsv_0003)" ||
  fail "offline_checkout exited $? against $url: $out"
while IFS= read -r line; do echo "  $line"; done <<<"$out"
grep -qxF 'Checked out rsv_0003 (item 1)' <<<"$out" || fail "offline_checkout did not check rsv_0003 out as item 1"
say "OK"
