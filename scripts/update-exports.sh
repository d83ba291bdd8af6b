#!/bin/sh
# update-exports.sh [--abi]: writes what libkel exports now into tests/structure/exports.txt, with --abi also the
# baseline of its functions and records. Review the difference before committing it.
set -eu
cd "$(dirname "$(realpath "$0")")/.."
cmake --preset dev >/dev/null
cmake --build --preset dev --target update-exports >/dev/null
if [ "${1-}" = --abi ]; then cmake --build --preset dev --target update-abi >/dev/null; fi
git diff --stat -- tests/structure
