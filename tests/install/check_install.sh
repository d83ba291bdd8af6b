#!/bin/sh
# check_install.sh BUILD_FOLDER SOURCE DRAWING_SOURCE: installs into an empty prefix, moves it, builds and runs both
# programs with pkg-config's flags, and the first one with find_package(kel) too.
set -eu
build=$1 source=$2 drawing=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/moved" # nothing may depend on the place that was named at installation

PKG_CONFIG_PATH=$(dirname "$(find "$work/moved" -name kel.pc)")
export PKG_CONFIG_PATH
for program in "$source" "$drawing"; do
    # shellcheck disable=SC2046
    cc -std=c11 -Wall -Werror "$program" -o "$work/with-pkg-config" $(pkg-config --cflags --libs kel) \
        -Wl,-rpath,"$(pkg-config --variable=libdir kel)"
    "$work/with-pkg-config"
done

mkdir "$work/client"
cat >"$work/client/CMakeLists.txt" <<CLIENT
cmake_minimum_required(VERSION 3.25)
project(client LANGUAGES C)
find_package(kel 1 REQUIRED)
add_executable(client "$source")
target_link_libraries(client PRIVATE kel::kel)
CLIENT
cmake -G Ninja -S "$work/client" -B "$work/client/build" -DCMAKE_PREFIX_PATH="$work/moved" >/dev/null
cmake --build "$work/client/build" >/dev/null
"$work/client/build/client"
