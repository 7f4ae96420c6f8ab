# Sourced by installer: what is the player's stays, and what cannot work is said and changes nothing.
# shellcheck shell=bash

case_foreign_program_directory_is_refused() {
    local before
    mkdir -p "$program"
    echo "mine" >"$program/file"
    before=$(home_state)
    refuses install 1 2>"$work/said"
    grep -q "$program is there, .* move it away" "$work/said" || bad "does not say what is in the way"
    is_as_found "$before"
    refuses "$work/archive1/uninstall"
    is_as_found "$before"
}

case_files_put_below_ours_are_kept() {
    local how
    for how in upgrade uninstall; do
        new_home $how
        install 1
        echo "mine" >"$program/notes"
        mkdir "$program/screenshots"
        echo "picture" >"$program/screenshots/1"
        ln -s ../../../own\ file "$program/licenses/link"
        echo "hidden" >"$program/plugins/"$'line\nbreak'
        if [ $how = upgrade ]; then
            install 2 >"$work/said"
            has_program 2
        else
            uninstall >"$work/said"
            [ ! -e "$program" ] || bad "the program stays"
        fi
        [ "$(cat "$program.kept/notes")" = mine ] || bad "$how: a file"
        [ "$(cat "$program.kept/screenshots/1")" = picture ] || bad "$how: a directory"
        [ -L "$program.kept/licenses/link" ] || bad "$how: a link"
        [ "$(cat "$program.kept/plugins/"$'line\nbreak')" = hidden ] || bad "$how: an odd name"
        [ "$(find "$program.kept" -type f | wc -l)" -eq 4 ] || bad "$how: something of ours was kept: $(find "$program.kept")"
        grep -q "tessellan-launcher.kept" "$work/said" || bad "$how: not told"
        [ "$(cat "$HOME/own file")" = "the player's" ] || bad "through a link"
    done
    # And a second time beside the first.
    install 2
    echo "other" >"$program/notes"
    install 1
    [ "$(cat "$program.kept/notes" "$program.kept+/notes")" = $'mine\nother' ] || bad "the first were lost"
}

case_links_instead_of_files_stay() {
    local icon=$data/icons/hicolor/48x48/apps/$id.png before
    mkdir -p "$(dirname "$icon")" "$data/applications"
    ln -s "$HOME/own file" "$icon"
    ln -s "$HOME/own entry" "$entry"
    before=$(home_state)
    install 1
    [ -L "$icon" ] && [ -L "$entry" ] || bad "a link was replaced"
    install 2
    [ "$(cat "$HOME/own file")" = "the player's" ] || bad "written through a link"
    [ ! -e "$HOME/own entry" ] || bad "written through a dangling link"
    uninstall
    is_as_found "$before"
}

case_file_that_became_a_link_stays() {
    local icon=$data/icons/hicolor/48x48/apps/$id.png
    install 1
    ln -sf "$HOME/own file" "$icon"
    ln -sf "$HOME/own file" "$command"
    install 2
    [ -L "$icon" ] && [ "$command" -ef "$HOME/own file" ] || bad "replaced by an upgrade"
    uninstall
    [ -L "$icon" ] && [ -L "$command" ] || bad "removed"
    [ "$(cat "$HOME/own file")" = "the player's" ] || bad "written through a link"
}

case_program_directory_on_another_disk_stays_a_link() {
    local target=$work/elsewhere/disk
    mkdir -p "$target" "$HOME/.local/lib"
    ln -s "$target" "$program"
    install 1
    [ -L "$program" ] && [ -f "$target/tessellan-launcher" ] || bad "the link was replaced"
    has_installation 1
    install 2
    [ -L "$program" ] && [ -f "$target/tessellan-launcher" ] || bad "the link was replaced by an upgrade"
    has_installation 2
    uninstall
    [ -L "$program" ] && [ -d "$target" ] && [ -z "$(ls -A "$work/elsewhere/disk")" ] || bad "the link does not stay"
    [ "$(ls -A "$work/elsewhere")" = disk ] || bad "remains on the other disk"
}

case_directories_that_are_links() {
    local before
    mkdir -p "$work/elsewhere/share" "$work/elsewhere/lib" "$HOME/.local"
    ln -s "$work/elsewhere/share" "$HOME/.local/share"
    ln -s "$work/elsewhere/lib" "$HOME/.local/lib"
    before=$(home_state)
    install 1
    has_program 1
    install 2
    uninstall
    is_as_found "$before"
    [ -z "$(find "$work/elsewhere" -mindepth 2)" ] || bad "remains: $(find "$work/elsewhere")"
}

case_entry_of_the_players_own_stays() {
    local before
    mkdir -p "$data/applications"
    printf '[Desktop Entry]\nType=Application\nName=My own\nExec=mine\n' >"$entry"
    before=$(home_state)
    install 1 >"$work/said"
    grep -q "$entry is there already" "$work/said" || bad "not told"
    install 2
    grep -q "My own" "$entry" || bad "overwritten"
    uninstall
    is_as_found "$before"
}

case_entry_that_the_player_changed_stays() {
    install 1
    echo "X-Mine=yes" >>"$entry"
    install 2
    grep -q "X-Mine" "$entry" || bad "overwritten"
    uninstall
    grep -q "X-Mine" "$entry" || bad "removed"
}

case_command_of_the_players_own_stays() {
    mkdir -p "$HOME/.local/bin"
    echo "mine" >"$command"
    install 1
    install 2
    uninstall
    [ "$(cat "$command")" = mine ] || bad "the command"
}

case_root_does_not_install_into_a_players_home() {
    # Seen from here /usr belongs to somebody else.
    refuses env HOME=/usr unshare --user --map-root-user "$work/archive1/install" 2>"$work/said"
    grep -q "sudo" "$work/said" || bad "no word about it: $(cat "$work/said")"
    refuses env HOME=/usr unshare --user --map-root-user "$work/archive1/uninstall" 2>"$work/said"
    grep -q "sudo" "$work/said" || bad "no word about it: $(cat "$work/said")"
    unshare --user --map-root-user "$work/archive1/install"
    has_installation 1
}

# broken_archive: a copy of the second to spoil, in $broken.
broken_archive() {
    broken=$work/archive-broken
    rm -rf "$broken"
    cp -R "$work/archive2" "$broken"
    printf '%s\n' "libabsent_.so.1 libabsent1" >"$broken/program/setup/system-libraries"
}
# refuses_broken <word> [<command> ...]: on a first installation and on an upgrade.
refuses_broken() {
    local word=$1 before how
    shift
    for how in first upgrade; do
        new_home "$how"
        [ $how = first ] || install 1
        before=$(home_state)
        refuses "$@" "$broken/install" >"$work/said" 2>&1
        grep -q "$word" "$work/said" || bad "$how: does not say $word: $(cat "$work/said")"
        is_as_found "$before"
        [ $how = first ] || has_installation 1
    done
}

case_missing_library_is_named() {
    broken_archive
    cp /bin/ls "$broken/program/tessellan-launcher"
    LC_ALL=C sed -i 's/libselinux\.so\.1/libabsent_.so.1/g' "$broken/program/tessellan-launcher"
    refuses_broken "libabsent_.so.1 (package libabsent1)"
    grep -q "sudo apt install libabsent1" "$work/said" || bad "no command"
}

case_library_missing_to_a_plugin_is_named() {
    broken_archive
    cp /bin/ls "$broken/program/plugins/platforms/libqxcb.so"
    LC_ALL=C sed -i 's/libselinux\.so\.1/libabsent_.so.1/g' "$broken/program/plugins/platforms/libqxcb.so"
    refuses_broken "libabsent_.so.1 (package libabsent1)"
}

case_old_glibc_is_named() {
    broken_archive
    LC_ALL=C sed -i 's/GLIBC_2\.34/GLIBC_9.34/g' "$broken/program/tessellan-launcher"
    refuses_broken "needs glibc 9.34 or newer; this system has glibc $(getconf GNU_LIBC_VERSION | cut -d ' ' -f 2)"
}

case_home_without_exec_is_said() {
    broken_archive
    # shellcheck disable=SC2016 # expanded there
    local there='mount -t tmpfs -o noexec tmpfs "$HOME" && ! "$0" && [ -z "$(ls -A "$HOME")" ]'
    unshare --user --map-root-user --mount sh -c "$there" "$broken/install" >"$work/said" 2>&1 ||
        bad "it did not refuse, or left something: $(cat "$work/said")"
    grep -q noexec "$work/said" || bad "does not say noexec: $(cat "$work/said")"
}

case_what_qt_says_is_passed_on() {
    broken_archive
    printf '#!/bin/sh\n[ $1 = tls ] || { echo "no plugin for this" >&2; exit 134; }\n' \
        >"$broken/program/tessellan-launcher-trial"
    refuses_broken "no plugin for this" env DISPLAY=:0
    # Without a display, or with one that is not ours, there is nothing to learn.
    "$broken/install"
    printf '#!/bin/sh\n[ $1 = tls ] || { echo "qt.qpa.xcb: could not connect to display :0" >&2; exit 134; }\n' \
        >"$broken/program/tessellan-launcher-trial"
    DISPLAY=:0 "$broken/install"
    has_installation 2
}

case_missing_openssl_is_told() {
    broken_archive
    printf '#!/bin/sh\n[ $1 != tls ]\n' >"$broken/program/tessellan-launcher-trial"
    "$broken/install" >"$work/said"
    grep -q "OpenSSL" "$work/said" || bad "not told"
    has_installation 2
}

case_full_disk_leaves_what_was_there() {
    broken_archive
    head -c 3000000 /dev/zero >"$broken/program/libdata.so.1"
    cat >"$work/on-small-disk" <<'END'
set -eu
mount -t tmpfs -o size=300k tmpfs "$HOME"
if [ "$2" = upgrade ]; then "$1/../archive1/install" >/dev/null; fi
find "$HOME" -type f -exec sha256sum {} + | sort >"$1.before"
! "$1/install" || { echo "it did not fail"; exit 1; }
find "$HOME" -type f -exec sha256sum {} + | sort | diff "$1.before" -
! find "$HOME" | grep -E '/[.]tessellan|tessellan-new' || exit 1
if [ "$2" = upgrade ]; then "$HOME/.local/lib/tessellan-launcher/tessellan-launcher"; else [ -z "$(ls -A "$HOME")" ]; fi
END
    for how in first upgrade; do
        unshare --user --map-root-user --mount sh "$work/on-small-disk" "$broken" $how >"$work/said" 2>&1 ||
            bad "$how: $(cat "$work/said")"
        grep -q "No space left" "$work/said" && grep -q "Nothing was changed" "$work/said" || bad "no word of it"
    done
}

# A name of every place that a run writes below is taken by a file, one after the other.
case_failed_run_changes_nothing() {
    local before way
    for way in .local .local/lib .local/bin .local/share .local/share/icons .local/share/man/man1 \
        .local/share/icons/hicolor/22x22; do
        new_home "${way//\//_}"
        mkdir -p "$HOME/$(dirname "$way")"
        echo "in the way" >"$HOME/$way"
        before=$(home_state)
        refuses install 2
        is_as_found "$before"
    done
    new_home upgrade
    install 1
    echo "in the way" >"$data/icons/hicolor/22x22"
    before=$(home_state)
    refuses install 2
    is_as_found "$before"
    has_installation 1
}

case_interrupted_run_changes_nothing() {
    local before signal
    for signal in INT TERM HUP; do
        new_home $signal
        install 1
        before=$(home_state)
        # The last command before the renames.
        mkdir -p "$work/bin"
        # shellcheck disable=SC2016 # expanded there
        printf '#!/bin/sh\nkill -%s $PPID\n' $signal >"$work/bin/sync"
        chmod +x "$work/bin/sync"
        # Whoever runs this in the background has it ignore two of them.
        refuses env --default-signal="$signal" PATH="$work/bin:$PATH" "$work/archive2/install"
        rm "$work/bin/sync"
        is_as_found "$before"
    done
}

case_nobody_reads_what_it_says() {
    install 1
    # The reader has gone before anything is said.
    "$work/archive2/install" > >(exec true) 2>&1 || true
    (has_installation 1) >"$work/said" || has_installation 2
    broken_archive
    mkdir -p "$work/bin"
    # And between the program's change of place and the first rename.
    printf '#!/bin/sh\n"%s" "$@" && kill -PIPE $PPID\n' "$exchange" >"$broken/program/setup/exchange"
    "$broken/install"
    has_program 2
}

case_without_exchange() {
    local before
    before=$(home_state)
    install 1
    broken_archive
    printf '#!/bin/sh\nexit 1\n' >"$broken/program/setup/exchange"
    "$broken/install"
    has_program 2
    uninstall
    is_as_found "$before"
}

case_ends_what_ended_between_two_renames() {
    install 1
    mv "$program" "$HOME/.local/lib/.tessellan-launcher.old"
    refuses env XDG_DATA_HOME="$HOME/own file" "$work/archive2/install"
    has_installation 1
}

case_waits_without_flock() {
    local tool bin=$work/without-flock
    mkdir -p "$bin"
    for tool in /usr/bin/* /bin/*; do ln -sf "$tool" "$bin"; done
    rm "$bin/flock"
    # A process that has ended without giving it back.
    sh -c 'ln -s $$ "$HOME/.tessellan-launcher.lock.owner"'
    PATH=$bin install 1
    has_installation 1
    PATH=$bin install 2 &
    PATH=$bin install 1 &
    wait -n && wait -n
    (has_installation 1) >"$work/said" || has_installation 2
    has_no_remains
}
