#!/bin/sh
# check_abi.sh BASELINE LIBRARY HEADER_FOLDER...: fails when a function or record of the public headers is gone or has
# changed since the baseline was written; new ones are welcome. With UPDATE=1 it writes the baseline instead.
set -eu
baseline=$1 library=$2
shift 2
headers=$(printf -- '--headers-dir %s ' "$@")
dump() { # the types that only the library's own sources define are left out
    # shellcheck disable=SC2086
    abidw $headers --drop-private-types --exported-interfaces-only --no-show-locs --no-corpus-path --no-comp-dir-path \
        --out-file "$1" "$library"
}
if [ "${UPDATE-}" = 1 ]; then
    dump "$baseline"
else
    now=$(mktemp)
    trap 'rm -f "$now"' EXIT
    dump "$now"
    abidiff --no-added-syms "$baseline" "$now"
fi
