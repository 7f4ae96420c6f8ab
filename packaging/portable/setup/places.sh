# Sourced by install and uninstall: where an installation lies, and that one run alone changes it.
# shellcheck shell=sh

line_break='
'

fail() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}
# That nobody reads it stops nothing.
say() { printf '%s\n' "$@" 2>/dev/null || true; }
note() { say "note: $*"; }

# read_options <text of --help> <argument> ...
read_options() {
    usage=$1
    shift
    [ $# -gt 0 ] || return 0
    case $1 in
        -h | --help) printf '%s\n' "$usage" && exit 0 ;;
    esac
    printf 'error: unknown argument: %s\n\n%s\n' "$1" "$usage" >&2
    exit 2
}

# Sets home, data, program, link; place, which is program unless that is a link; and the names used
# beside them.
find_places() {
    case ${HOME:-} in /*) ;; *) fail "HOME names no directory" ;; esac
    [ -d "$HOME" ] || fail "there is no home directory $HOME"
    home=${HOME%/}
    # Whoever looks for a desktop entry ignores a relative path as well.
    case ${XDG_DATA_HOME:-} in
        /*) data=${XDG_DATA_HOME%/} ;;
        *) data=$home/.local/share ;;
    esac
    case $home$data in *"$line_break"*) fail "a line break in the path of the home directory" ;; esac
    [ "$(id -u)" -ne 0 ] || [ -O "$HOME" ] ||
        fail "$HOME is not root's home; run this as the player whose home it is, without sudo"

    # No mask keeps us out of what we make.
    umask u+rwx
    program=$home/.local/lib/tessellan-launcher
    link=$home/.local/bin/tessellan-launcher
    lock=$home/.tessellan-launcher.lock
    place=$program
    if [ -L "$program" ]; then
        place=$(readlink -f -- "$program") || fail "$program is a link that leads nowhere"
    fi
    stage=${place%/*}/.${place##*/}.new
    old=${place%/*}/.${place##*/}.old
}

# One run at a time. Whoever comes second waits.
take_lock() {
    if [ -L "$lock" ] || { [ -e "$lock" ] && [ ! -f "$lock" ]; }; then
        fail "$lock is in the way"
    fi
    # A redirection that fails would end the shell.
    (: >>"$lock") 2>/dev/null || fail "cannot write into $HOME"
    if ! command -v flock >/dev/null; then
        lock_by_owner
        return
    fi
    while exec 9>>"$lock"; do
        flock -n 9 || {
            say "Waiting for another installation to end."
            flock 9
        }
        # The run before takes the lock's name away when it ends: then this is another file.
        [ ! "$lock" -ef /dev/fd/9 ] || break
    done
}

# Without flock: a link that names the process, made by one and the first alone.
lock_by_owner() {
    until ln -sn "$$" "$lock.owner" 2>/dev/null; do
        owner=$(readlink "$lock.owner") || continue
        if kill -0 "$owner" 2>/dev/null; then
            [ -n "${told:-}" ] || say "Waiting for another installation to end (process $owner)."
            told=yes
            sleep 1
        elif mkdir "$lock.$owner" 2>/dev/null; then
            # Its process has ended without taking it away. One alone may do that now.
            [ "$(readlink "$lock.owner")" != "$owner" ] || rm -f "$lock.owner"
            rmdir "$lock.$owner"
        fi
    done
    : >>"$lock"
}

give_lock_back() {
    rm -f -- "$lock"
    [ ! -L "$lock.owner" ] || rm -f -- "$lock.owner"
}
