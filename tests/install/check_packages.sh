#!/bin/sh
# check_packages.sh BUILD_FOLDER EXAMPLE_SOURCE: builds the Debian packages, unpacks them into an empty root, builds the
# example against it and runs that and the program, which must say the version of the packages.
set -eu
build=$1 source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cpack --config "$build/CPackConfig.cmake" -B "$work/packages" >"$work/cpack.log" 2>&1 || { cat "$work/cpack.log" && exit 1; }

for package in libkel1 libkel-dev kel; do
    file=$(echo "$work/packages/${package}"_*.deb)
    dpkg-deb -x "$file" "$work/root"
    dpkg-deb -f "$file" Package Version Depends
done
depends() { dpkg-deb -f "$work/packages/$1"_*.deb Depends | grep -q -e "$2"; }
depends libkel1 libgl1-mesa-dri && depends libkel1 libegl-mesa0 && depends libkel1 libfreetype6
depends libkel-dev 'libkel1 (= ' && depends kel libkel1

test -e "$work/root/usr/share/kel/filters/sepia.glsl"
PKG_CONFIG_PATH=$(dirname "$(find "$work/root" -name kel.pc)")
export PKG_CONFIG_PATH
# shellcheck disable=SC2046
cc -std=c11 "$source" -o "$work/example" $(pkg-config --cflags --libs kel) \
    -Wl,-rpath,"$(pkg-config --variable=libdir kel)"
"$work/example" >/dev/null
version=$(dpkg-deb -f "$work/packages/kel"_*.deb Version)
"$work/root/usr/bin/kel" --version | tee /dev/stderr | grep -q -e "$version"
