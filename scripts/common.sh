# Sourced by the scripts beside it: where the project is, and what it needs installed.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf '== %s\n' "$*"; }
die() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

# Installs what is missing of scripts/packages; asks for nothing when all is there.
install_packages() {
    local wanted missing=() name sudo=()
    wanted=$(sed 's/#.*//' "$root/scripts/packages")
    for name in $wanted; do
        dpkg-query -W -f '${Status}' "$name" 2>/dev/null | grep -q 'ok installed' || missing+=("$name")
    done
    [ ${#missing[@]} -eq 0 ] && return
    say "installing ${#missing[@]} packages: ${missing[*]}"
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || die "run as root, or install sudo, so that packages can be installed"
        sudo=(sudo)
    fi
    "${sudo[@]}" apt-get update -q
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}"
}
