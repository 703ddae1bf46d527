#!/usr/bin/env bash
# Renders the public headers and docs/guide.md into build-docs/html with Doxygen (docs/Doxyfile).
# Fails, printing them, on any warning: an undocumented public symbol is one.
#   scripts/docs.sh
set -euo pipefail
cd "$(dirname "$0")/.."

if [ $# -ne 0 ]; then echo "usage: $0" >&2; exit 2; fi
if ! command -v doxygen >/dev/null; then
  echo "docs: doxygen is missing; scripts/setup.sh --tests installs it" >&2
  exit 1
fi

# A fresh tree, so no page from a symbol since removed stays behind.
rm -rf build-docs
mkdir -p build-docs
status=0
doxygen docs/Doxyfile || status=$?

# The log as well as the exit status: either one alone is enough to fail.
if [ -s build-docs/warnings.log ] || [ "$status" -ne 0 ]; then
  cat build-docs/warnings.log >&2
  echo "docs: doxygen $(doxygen --version) reported $(grep -c . build-docs/warnings.log || true) warning line(s) (exit $status)" >&2
  exit 1
fi
echo "docs: $(pwd)/build-docs/html/index.html"
