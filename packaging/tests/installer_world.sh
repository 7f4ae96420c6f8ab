# Sourced by installer: archives of tiny files, a home, and what is true of a whole installation.
# shellcheck shell=bash

id=example.tessellan.launcher

# make_archive <version>: in $work/archive<version>. Every file of the program bears the version.
make_archive() {
    local top=$work/archive$1 size
    mkdir -p "$top"/program/{plugins/platforms,licenses,setup} \
        "$top"/share/{applications,metainfo,man/man1}
    cp "$scripts/install" "$scripts/uninstall" "$top"
    [ ! -d "$scripts/setup" ] || cp "$scripts"/setup/* "$top/program/setup"
    cp "$scripts/uninstall" "$top/program"
    cp "$exchange" "$top/program/setup/exchange"
    # A real program for the loader; it ignores what follows.
    cp /bin/true "$top/program/tessellan-launcher"
    cp /lib/x86_64-linux-gnu/libdl.so.2 "$top/program/plugins/platforms/libqxcb.so"
    : >"$top/program/libnames.so.$1"
    for file in tessellan-launcher plugins/platforms/libqxcb.so libdata.so.1 qt.conf licenses/a.txt; do
        printf '\nversion %s\n' "$1" >>"$top/program/$file"
    done
    printf '[Desktop Entry]\nType=Application\nName=Launcher %s\nExec=tessellan-launcher\nIcon=%s\n' \
        "$1" "$id" >"$top/share/applications/$id.desktop"
    echo "<component>version $1</component>" >"$top/share/metainfo/$id.metainfo.xml"
    echo ".TH VERSION $1" >"$top/share/man/man1/tessellan-launcher.1"
    for size in 48x48 256x256; do
        mkdir -p "$top/share/icons/hicolor/$size/apps"
        echo "icon $1" >"$top/share/icons/hicolor/$size/apps/$id.png"
    done
    # One icon that the other version does not have.
    mkdir -p "$top/share/icons/hicolor/$1$1x$1$1/apps"
    echo "icon $1" >"$top/share/icons/hicolor/$1$1x$1$1/apps/$id.png"
}

# new_home [<name>]: an empty one but for a file of the player's.
new_home() {
    export HOME=$work/home/${1:-player}
    mkdir -p "$HOME"
    unset XDG_DATA_HOME XDG_CONFIG_HOME SUDO_USER DISPLAY WAYLAND_DISPLAY
    echo "the player's" >"$HOME/own file"
    places
}
places() {
    program=$HOME/.local/lib/tessellan-launcher
    data=${XDG_DATA_HOME:-$HOME/.local/share}
    entry=$data/applications/$id.desktop
    command=$HOME/.local/bin/tessellan-launcher
}

bad() {
    echo "$*"
    exit 1
}
refuses() { ! "$@" || bad "it did not refuse: $*"; }
install() { "$work/archive$1/install" "${@:2}" </dev/null; }
uninstall() { "$program/uninstall" </dev/null; }
# All names below the home, and what files hold; an installation's own directories' times do not count.
home_state() { (cd "$HOME" && find . -printf '%y %p %l\n' | sort && find . -type f -exec sha256sum {} + | sort -k 2); }
is_as_found() { [ "$(home_state)" = "$1" ] || bad "the home is not as it was: $(home_state | diff - <(echo "$1"))"; }

# has_program <version>: whole, and of that version alone.
has_program() {
    local file
    "$program/tessellan-launcher" || bad "the program does not run"
    for file in tessellan-launcher plugins/platforms/libqxcb.so libdata.so.1 qt.conf licenses/a.txt; do
        [ "$(tail -n 1 "$program/$file")" = "version $1" ] || bad "$file is not of version $1"
    done
    [ -f "$program/libnames.so.$1" ] && [ "$(find "$program/" -name 'libnames*' | wc -l)" -eq 1 ] || bad "libraries of two versions"
    cmp "$program/uninstall" "$work/archive$1/uninstall"
}
# A menu entry or a command that is there starts something.
leads_somewhere() {
    local run
    if [ -e "$entry" ]; then
        run=$(sed -n 's/^Exec="\(.*\)"$/\1/p' "$entry")
        "$run" || bad "the menu entry starts nothing"
    fi
    if [ -L "$command" ]; then "$command" || bad "the command starts nothing"; fi
}
# has_installation <version>: and nothing that a run needs only while it lasts.
has_installation() {
    has_program "$1"
    [ -e "$entry" ] || bad "no menu entry"
    leads_somewhere
    grep -q "Name=Launcher $1" "$entry" || bad "the menu entry of another version"
    [ "$command" -ef "$program/tessellan-launcher" ] || bad "the command"
    [ "$(find "$data/icons" -path '*/apps/*' | wc -l)" -eq 3 ] || bad "the icons"
    [ "$(cat "$data/icons/hicolor/$1$1x$1$1/apps/$id.png")" = "icon $1" ] || bad "the icon of version $1"
    has_no_remains
}
has_no_remains() {
    local remains
    remains=$(find "$HOME" -name '.tessellan*' -o -name '*.tessellan-new' -o -name '*.kept')
    [ -z "$remains" ] || bad "remains: $remains"
}
