#!/bin/bash
# make-arm-sysroot.sh [FOLDER]: unpacks the armhf development packages of packages_arm_sysroot, and what they
# depend on, into FOLDER (default: $ARM_SYSROOT, else build/arm-sysroot). Does nothing when FOLDER already holds
# what the list asks for.
#
# apt resolves the packages against an empty package status, so the host's packages and dpkg's list of
# architectures play no part. The security suite is left out: the base suite is one consistent set of versions,
# and the result only compiles and runs tests.
set -euo pipefail
here=$(dirname "$(realpath "$0")")
# shellcheck source=scripts/packages.sh
source "$here/packages.sh"
dest=$(realpath -m "${1:-${ARM_SYSROOT:-$here/../build/arm-sysroot}}")
# shellcheck source=/dev/null
source /etc/os-release

wanted=$({ echo "$VERSION_CODENAME" "${packages_arm_sysroot[@]}" && cat "$0"; } | sha256sum)
is_current() { [[ $(cat "$dest/.contents" 2>/dev/null) == "$wanted" ]]; }
is_current && exit 0
mkdir -p "$(dirname "$dest")"
exec 9>"$dest.lock"
flock 9 # two builds may ask at once
is_current && exit 0

echo "Making the ARM sysroot in $dest"
state=$dest.apt
new=$dest.new
rm -rf "$state" "$new"
trap 'rm -rf "$state" "$new"' EXIT
mkdir -p "$new" "$state/lists/partial" "$state/archives/partial"
: >"$state/status"
targets() { apt-get indextargets --format '$(REPO_URI)' "Codename: $VERSION_CODENAME" 'Created-By: Packages'; }
uri=$(targets | head -n 1)
cat >"$state/armhf.sources" <<SOURCES
Types: deb
URIs: $uri
Suites: $VERSION_CODENAME $VERSION_CODENAME-updates
Components: main
Architectures: armhf
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SOURCES
armhf_apt() {
    apt-get -q -y -o APT::Architecture=armhf -o APT::Architectures=armhf \
        -o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts="$state" \
        -o Dir::State::Lists="$state/lists" -o Dir::State::Status="$state/status" \
        -o Dir::Cache="$state" -o Dir::Cache::Archives="$state/archives" \
        -o APT::Sandbox::User="$(id -un)" -o APT::Install-Recommends=false "$@" </dev/null >"$state/log" ||
        { tail -n 20 "$state/log" >&2 && return 1; }
}
armhf_apt update
armhf_apt --download-only install "${packages_arm_sysroot[@]}"
for package in "$state"/archives/*.deb; do dpkg-deb -x "$package" "$new"; done

# An absolute link would lead out of the folder.
find "$new" -type l -lname '/*' -printf '%p %l\n' | while read -r link target; do
    ln -sfn "$(realpath -ms --relative-to="$(dirname "$link")" "$new$target")" "$link"
done
echo "$wanted" >"$new/.contents"
rm -rf "$dest"
mv "$new" "$dest"
