# The stages that ./check, ./demo and ./bench are made of. Sourced, with the project's root as current folder.
# shellcheck shell=bash

# Another clone of the same sources finds the objects again.
if command -v ccache >/dev/null; then
    export CCACHE_BASEDIR=${CCACHE_BASEDIR-$PWD} CCACHE_NOHASHDIR=${CCACHE_NOHASHDIR-1}
    export CMAKE_C_COMPILER_LAUNCHER=${CMAKE_C_COMPILER_LAUNCHER-ccache}
    export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
fi

stages_failed=()
test_presets=()

# stage TITLE COMMAND...: runs the command, says how long it took and remembers whether it failed.
stage() {
    local title=$1 start=$SECONDS
    shift
    echo "== $title"
    if "$@"; then
        echo "== $title: passed in $((SECONDS - start)) s"
    else
        stages_failed+=("$title")
        echo "== $title: FAILED after $((SECONDS - start)) s"
    fi
}

# quietly LOG COMMAND...: keeps the output in a file and shows its end when the command fails.
quietly() {
    local log=$1
    shift
    mkdir -p "$(dirname "$log")"
    "$@" >"$log" 2>&1 </dev/null || { tail -n 60 "$log" && return 1; }
}

# build PRESET: configures and builds; incremental, in build/PRESET.
build() {
    quietly "build/logs/$1-configure.log" cmake --preset "$1" &&
        quietly "build/logs/$1-build.log" cmake --build --preset "$1"
}

# build_and_test PRESET: shows the tests that did not pass, with their output, and ctest's closing lines.
build_and_test() {
    local preset=$1 log=build/logs/$1-test.log run=() status=0
    build "$preset" || return
    test_presets+=("$preset")
    # The thread sanitizer of older compilers cannot place its shadow when addresses are randomised widely.
    [[ $preset == tsan ]] && setarch -R true 2>/dev/null && run=(setarch -R)
    "${run[@]}" ctest --preset "$preset" --no-tests=error -j "$(nproc)" >"$log" 2>&1 </dev/null || status=$?
    grep -Ev '^ *Start +[0-9]+: |^ *[0-9]+/[0-9]+ Test +#.* Passed ' "$log"
    return $status
}

# Every C and C++ file is formatted as .clang-format says.
check_style() {
    find . -path ./build -prune -o -type f \( -name '*.[ch]' -o -name '*.[ch]pp' \) -print0 |
        xargs -0 clang-format --dry-run -Werror
}

# The outcome in one place: what failed, then ctest's closing lines for each preset.
report() {
    local preset
    echo
    if ((${#stages_failed[@]})); then echo "FAILED: ${stages_failed[*]}"; fi
    for preset in "${test_presets[@]}"; do
        echo "== $preset"
        sed -n '/tests passed, /,$p' "build/logs/$preset-test.log"
    done
    ((${#stages_failed[@]} == 0))
}
