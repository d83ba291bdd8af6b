# Debian 12 packages, one array per purpose; sourced by ./check, ./demo, ./bench and the sysroot script.
# Lists are one name a line, sorted, so that two people can add a line each.
# shellcheck shell=bash disable=SC2034

# Compiles the libraries and programs.
packages_build=(
    cmake
    g++
    gcc
    libavcodec-dev
    libavformat-dev
    libavutil-dev
    libc6-dev
    libcli11-dev
    libegl-dev
    libfreetype-dev
    libgles-dev
    libglvnd-core-dev
    libpixman-1-dev
    libpng-dev
    libswresample-dev
    libswscale-dev
    ninja-build
    pkg-config
)

# Builds and runs the tests on the host.
packages_test=(
    abigail-tools
    alsa-utils
    binutils
    ccache
    doxygen
    dpkg-dev
    file
    fonts-dejavu-core
    fonts-lato
    fonts-liberation2
    fonts-noto-core
    googletest
    libegl-mesa0
    libgl1-mesa-dri
    mate-backgrounds
    python3
    sound-theme-freedesktop
)

# clang's lock analysis, its bug finders and the formatter.
packages_analysis=(
    clang
    clang-format
    clang-tidy
)

# Cross compiler and emulator for 32-bit ARM.
packages_arm=(
    g++-arm-linux-gnueabihf
    qemu-user
)

# What the 32-bit ARM sysroot is unpacked from; apt adds what these depend on.
packages_arm_sysroot=(
    libavcodec-dev
    libavformat-dev
    libavutil-dev
    libc6-dev
    libcli11-dev
    libegl-dev
    libegl-mesa0
    libfreetype-dev
    libgcc-12-dev
    libgl1-mesa-dri
    libgles-dev
    libglvnd-dev
    libpixman-1-dev
    libpng-dev
    libstdc++-12-dev
    libswresample-dev
    libswscale-dev
    linux-libc-dev
    zlib1g-dev
)

# Peers that the benchmarks run beside.
packages_bench=(
    ffmpeg
    fonts-dejavu-core
    libavfilter-dev
    libavutil-dev
    libcairo2-dev
    libglib2.0-dev
    libgstreamer-plugins-base1.0-dev
    libgstreamer1.0-dev
    libpango1.0-dev
    libsdl2-dev
    libswresample-dev
    libswscale-dev
    libtbb-dev
    libyuv-dev
)

# What the demo needs beyond the build.
packages_demo=(
    alsa-utils
    fonts-dejavu-core
    libegl-mesa0
    libgl1-mesa-dri
    mate-backgrounds
    sound-theme-freedesktop
)

# install_packages NAME...: installs what is missing, without questions; asks apt for new lists only then.
install_packages() {
    local missing=() name sudo=()
    for name in "$@"; do
        [[ $(dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null) == installed ]] || missing+=("$name")
    done
    ((${#missing[@]})) || return 0
    echo "Installing: ${missing[*]}"
    [[ $(id -u) == 0 ]] || sudo=(sudo)
    local apt=("${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y)
    "${apt[@]}" update >/dev/null &&
        "${apt[@]}" install --no-install-recommends "${missing[@]}" >/dev/null </dev/null
}
