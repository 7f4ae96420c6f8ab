# Sourced by the scripts beside it: where the project is, and what it needs installed.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf '== %s\n' "$*"; }
die() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

is_installed() { dpkg-query -W -f '${Status}' "$1" 2>/dev/null | grep -q 'ok installed'; }

# What is not installed of scripts/packages, one name for each line of alternatives.
missing_packages() {
    local line name chosen
    while read -r line; do
        chosen=
        for name in ${line//|/ }; do
            chosen=$name
            # "apt-cache show" also knows names that others merely mention.
            if is_installed "$name" || [ -n "$(apt-cache madison "$name" 2>/dev/null)" ]; then
                break
            fi
        done
        [ -z "$chosen" ] || is_installed "$chosen" || echo "$chosen"
    done < <(sed 's/#.*//' "$root/scripts/packages")
}

# Installs what is missing of scripts/packages; asks for nothing when all is there.
install_packages() {
    local missing sudo=()
    [ -n "$(missing_packages)" ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || die "run as root, or install sudo, so that packages can be installed"
        sudo=(sudo)
    fi
    "${sudo[@]}" apt-get update -q
    # Only now is it known which of several alternatives there is.
    mapfile -t missing < <(missing_packages)
    say "installing ${#missing[@]} packages: ${missing[*]}"
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}"
}
