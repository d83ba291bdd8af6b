#!/bin/sh
# check_install.sh BUILD_FOLDER SOURCE DRAWING_SOURCE: installs into an empty prefix, moves it, builds and runs both
# programs with pkg-config's flags, and the first one with find_package(kel) too; a client in C++ both ways as well.
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

cat >"$work/client.cpp" <<CLIENT
#include <kel.h>

int main() {
    kel_queue* queue = kel_queue_create_with_limit(1);
    int sent = 7;
    void* received = nullptr;
    const bool passed = kel_queue_enqueue(queue, &sent) && kel_queue_dequeue(queue, &received) && received == &sent;
    kel_queue_destroy(queue);
    return passed ? 0 : 1;
}
CLIENT
# shellcheck disable=SC2046
c++ -std=c++20 -Wall -Wextra -Wpedantic -Werror "$work/client.cpp" -o "$work/with-pkg-config" \
    $(pkg-config --cflags --libs kel) -Wl,-rpath,"$(pkg-config --variable=libdir kel)"
"$work/with-pkg-config"

mkdir "$work/client"
cat >"$work/client/CMakeLists.txt" <<CLIENT
cmake_minimum_required(VERSION 3.25)
project(client LANGUAGES C CXX)
set(CMAKE_CXX_STANDARD 20)
find_package(kel 1 REQUIRED)
add_executable(client "$source")
add_executable(client_cxx "$work/client.cpp")
target_link_libraries(client PRIVATE kel::kel)
target_link_libraries(client_cxx PRIVATE kel::kel)
CLIENT
cmake -G Ninja -S "$work/client" -B "$work/client/build" -DCMAKE_PREFIX_PATH="$work/moved" >/dev/null
cmake --build "$work/client/build" >/dev/null
"$work/client/build/client"
"$work/client/build/client_cxx"
