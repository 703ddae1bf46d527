#!/usr/bin/env bash
# What a host pays in size for the kit: examples/readme_fetch.cpp (fetch one reservation and print it) built
# against the installed kit, Release, linked as an app's release build is (--gc-sections: only what it calls),
# stripped; once with the kit's libraries static, once shared (the executable, and the kit's own .so files it
# loads; libcurl, simdjson and the C++ runtime are the system's in both). Writes build-bench/host-size.json.
#   scripts/host-size.sh
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
jobs="$(nproc 2>/dev/null || echo 2)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
say() { echo "host-size.sh: $*" >&2; }

mkdir -p "$work/host"
cp examples/readme_fetch.cpp "$work/host/"
cat >"$work/host/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(MinimalHost LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 20)
find_package(VLMSDKPMSKit REQUIRED)
add_executable(readme_fetch readme_fetch.cpp)
target_link_libraries(readme_fetch PRIVATE VLMSDK::VLMSDKPMSKit)
CMAKE

declare -A bytes
for kind in static shared; do
  shared=OFF
  [ "$kind" = shared ] && shared=ON
  dir="build-size-$kind"
  say "building the kit ($kind) in $dir/"
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS="$shared" -DVLMSDK_BUILD_TESTS=OFF \
    -DVLMSDK_BUILD_TOOLS=OFF -DVLMSDK_BUILD_BENCH=OFF >/dev/null
  cmake --build "$dir" -j"$jobs" >/dev/null
  cmake --install "$dir" --prefix "$work/prefix-$kind" >/dev/null
  cmake -S "$work/host" -B "$work/host-$kind" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_PREFIX_PATH="$work/prefix-$kind" -DCMAKE_EXE_LINKER_FLAGS=-Wl,--gc-sections >/dev/null
  cmake --build "$work/host-$kind" >/dev/null
  strip -o "$work/readme_fetch-$kind" "$work/host-$kind/readme_fetch"
  total=$(stat -c %s "$work/readme_fetch-$kind")
  if [ "$kind" = shared ]; then
    for library in VLMErrors VLMMeta VLMSDKCoreKit VLMSDKPaymentKit VLMSDKPMSKit; do
      file="$(ls "$work/prefix-$kind"/lib*/lib$library.so.*.*.* | head -1)"
      strip -o "$work/$library.so" "$file"
      total=$((total + $(stat -c %s "$work/$library.so")))
    done
    bytes[shared_executable]=$(stat -c %s "$work/readme_fetch-$kind")
  fi
  bytes[$kind]=$total
done
mkdir -p build-bench
printf '{"static_bytes": %d, "shared_bytes": %d, "shared_executable_bytes": %d}\n' \
  "${bytes[static]}" "${bytes[shared]}" "${bytes[shared_executable]}" >build-bench/host-size.json
printf 'minimal host, stripped: static %d bytes; shared %d bytes (executable %d + the kit'"'"'s five .so files)\n' \
  "${bytes[static]}" "${bytes[shared]}" "${bytes[shared_executable]}"
