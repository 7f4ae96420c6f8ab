# Sourced by install: whether the program that lies in a directory would start on this system.
# shellcheck shell=sh

loader=/lib64/ld-linux-x86-64.so.2

# try_program <directory>: fails with plain words where it would not.
try_program() {
    case $(uname -sm) in
        "Linux x86_64") ;;
        *) give_up "It is made for Linux on x86-64; this is $(uname -sm)." ;;
    esac
    report=$(cd -- "$1" && resolve) || case $report in
        *"Permission denied"*)
            give_up "No program may be started from ${1%/*}: its file system is mounted \"noexec\"." ;;
        *) give_up "The system does not run it: ${report:-no GNU C library ($loader)}" ;;
    esac
    judge_glibc
    missing=$(printf '%s\n' "$report" | sed -n 's/^[[:space:]]*\([^ ]*\) => not found.*/\1/p' | sort -u)
    [ -z "$missing" ] || give_up "$(name_missing "$1" "$missing")"
    unfit=$(printf '%s\n' "$report" | grep -E 'version .* not found|^undefined symbol|error while' | head -n 3) || true
    [ -z "$unfit" ] || give_up "Libraries of this system do not fit:$line_break$unfit"
    try_start "$1"
}

give_up() { fail "the launcher would not start on this system. $1"; }

# What the loader says of the program and of each plugin; fails where the system refuses to run it.
resolve() {
    LD_TRACE_LOADED_OBJECTS=1 LD_WARN=yes LD_BIND_NOW=1 ./tessellan-launcher 2>&1 || return
    for plugin in plugins/*/*.so; do
        # Started by the program, it finds what lies beside that; "." is a path without a colon.
        [ ! -f "$plugin" ] ||
            LD_LIBRARY_PATH=".${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" LD_TRACE_LOADED_OBJECTS=1 \
                "$loader" "./$plugin" 2>&1 || true
    done
}

judge_glibc() {
    needed=$(printf '%s\n' "$report" | sed -n "s/.*version .GLIBC_\([0-9.]*\)' not found.*/\1/p" |
        sort -Vu | tail -n 1)
    [ -n "$needed" ] || return 0
    has=$(getconf GNU_LIBC_VERSION 2>/dev/null || true)
    give_up "It needs glibc $needed or newer; this system has ${has:-an older one}."
}

# name_missing <directory> <libraries>: with the Debian packages that bring them.
name_missing() {
    echo "These libraries are missing:"
    packages=
    for library in $2; do
        package=$(sed -n "s/^$library //p" "$1/setup/system-libraries" 2>/dev/null) || true
        printf '    %s%s\n' "$library" "${package:+ (package $package)}"
        packages=$packages${package:+ $package}
    done
    [ -z "$packages" ] || printf 'On Debian and its relatives: sudo apt install%s\n' "$packages"
}

# Starts what has the launcher's libraries and opens no window. A display that does not let us in
# proves nothing; neither does a system without one.
try_start() {
    [ -x "$1/tessellan-launcher-trial" ] || return 0
    timeout 30 "$1/tessellan-launcher-trial" tls 9>&- >/dev/null 2>&1 ||
        note "OpenSSL 3 does not load (package libssl3): without it the launcher reaches no server"
    [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] || return 0
    status=0
    said=$(exec 9>&- 2>&1 && timeout 30 "$1/tessellan-launcher-trial" display) || status=$?
    case $status,$said in
        0,* | 124,* | *"could not connect to display"* | *"Failed to create wl_display"*) ;;
        *) give_up "Qt says:$line_break$said" ;;
    esac
}
