#!/usr/bin/env bash
# The shared libraries' ABI against the baseline committed in abi/: builds them as they ship (shared, no tests,
# tools or benchmarks, hidden visibility with the public headers' declarations exported), installs them into
# build-abi/stage, and compares each library's ABI (libabigail's abidw, restricted to the installed public
# headers) with abi/<library>.abi. Any difference fails: an ABI change lands only with the baseline updated on
# purpose (--update), in the same commit.
#   scripts/abi-check.sh [--update]             (scripts/setup.sh --tests installs abigail-tools)
set -euo pipefail
cd "$(dirname "$0")/.."
update=0
case "${1:-}" in
  "") ;;
  --update) update=1 ;;
  *) echo "usage: $0 [--update]" >&2; exit 2 ;;
esac
say() { echo "abi-check.sh: $*" >&2; }
command -v abidw >/dev/null || { say "abigail-tools is missing: run ./scripts/setup.sh --tests"; exit 1; }

dir=build-abi
stage="$PWD/$dir/stage"
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
  -DBUILD_SHARED_LIBS=ON -DVLMSDK_BUILD_TESTS=OFF -DVLMSDK_BUILD_TOOLS=OFF -DVLMSDK_BUILD_BENCH=OFF \
  -DVLMSDK_EXPORT_INTERNALS=OFF -DCMAKE_INSTALL_PREFIX="$stage" >/dev/null
cmake --build "$dir" -j"$(nproc 2>/dev/null || echo 2)" >&2
rm -rf "$stage"
cmake --install "$dir" --component Unspecified >/dev/null
cmake --install "$dir" --component Testing >/dev/null

# Instantiations of the standard library's templates that a library happens to emit are not its interface.
suppressions="$PWD/abi/suppressions.txt"
mkdir -p abi
failed=0
libdir="$(find "$stage" -maxdepth 2 -type d -name 'lib*' | head -1)"
for library in "$libdir"/*.so.*.*.*; do
  name="$(basename "$library" | sed 's/\.so\..*//')"
  current="$PWD/$dir/$name.abi"
  abidw --headers-dir "$stage/include" --drop-private-types --no-corpus-path --no-show-locs --exported-interfaces-only --drop-undefined-syms --suppressions "$suppressions" \
    --out-file "$current" "$library"
  baseline="abi/$name.abi"
  if [ "$update" = 1 ]; then
    cp "$current" "$baseline"
    say "$baseline updated"
    continue
  fi
  if [ ! -f "$baseline" ]; then
    say "$name: no baseline ($baseline): make one on purpose with --update"
    failed=1
    continue
  fi
  # abidiff's status: 4 an ABI change (an added symbol included: the baseline says what the library exports),
  # 8 an incompatible one, 1 or 2 its own failure.
  status=0
  abidiff --suppressions "$suppressions" "$baseline" "$current" >"$dir/$name.diff" || status=$?
  if [ "$status" -ne 0 ]; then
    say "$name: the ABI differs from $baseline (abidiff status $status):"
    cat "$dir/$name.diff" >&2
    failed=1
  else
    say "$name: as in $baseline"
  fi
done
if [ "$failed" = 1 ]; then
  say "an ABI change: if it is meant, run scripts/abi-check.sh --update and commit abi/ with it (and raise the"
  say "major version in CMakeLists.txt when the change is incompatible)"
  exit 1
fi
