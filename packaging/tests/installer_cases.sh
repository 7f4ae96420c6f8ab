# Sourced by installer: what goes well, and homes of all kinds.
# shellcheck shell=bash

case_installs_upgrades_and_leaves_nothing() {
    local before
    before=$(home_state)
    install 1
    has_installation 1
    install 2
    has_installation 2
    install 1
    has_installation 1
    uninstall
    is_as_found "$before"
}

case_help_installs_nothing() {
    local before
    before=$(home_state)
    install 1 --help | grep -q '^Usage' || bad "no help"
    install 1 -h | grep -q '^Usage' || bad "no help"
    is_as_found "$before"
    install 1
    before=$(home_state)
    "$program/uninstall" --help | grep -q '^Usage' || bad "no help"
    is_as_found "$before"
}

case_unknown_option_is_refused() {
    local before status=0
    before=$(home_state)
    install 1 --prefix=/opt 2>"$work/said" || status=$?
    [ $status -eq 2 ] || bad "status $status"
    grep -q -e '--prefix=/opt' "$work/said" || bad "does not say which"
    is_as_found "$before"
    install 1
    before=$(home_state)
    refuses "$program/uninstall" --purge
    is_as_found "$before"
}

# As a desktop starts it.
start_entry() {
    XDG_CACHE_HOME=$work/cache /usr/bin/python3 - "$1" <<'END'
import sys
from gi.repository import Gio
Gio.DesktopAppInfo.new_from_filename(sys.argv[1]).launch([], None)
END
}
case_any_name_of_a_home() {
    local name before
    printf '#!/bin/sh\necho "$0" >>"$HOME/started"\n' >"$work/starts"
    for name in "Zoë Müller" 'two "quotes"' 'back\slash' 'a$HOME' '100%u' 'a`b' "o'brien" \
        'a [b] *c?' 'a:b;c' '~' '-n' ' lead' '#'; do
        new_home "$name"
        before=$(home_state)
        cp -R "$work/archive1" "$work/archive-$$"
        cp "$work/starts" "$work/archive-$$/program/tessellan-launcher"
        "$work/archive-$$/install"
        rm -rf "$work/archive-$$"
        start_entry "$entry"
        await_file "$HOME/started"
        [ "$(cat "$HOME/started")" = "$program/tessellan-launcher" ] || bad "$name: starts $(cat "$HOME/started")"
        rm "$HOME/started"
        install 2
        (start_entry "$entry")
        has_program 2
        has_no_remains
        uninstall
        is_as_found "$before"
    done
}
await_file() {
    local tries=300
    until [ -s "$1" ]; do
        ((tries--)) || bad "$1 does not come"
        sleep 0.1
    done
}

case_line_break_in_the_home_is_refused() {
    local before
    new_home $'two\nlines'
    before=$(home_state)
    refuses install 1
    is_as_found "$before"
}

case_apostrophe_is_told_and_stages_no_update() {
    new_home "o'brien"
    install 1 >"$work/said"
    grep -q "cannot update itself" "$work/said" || bad "not told"
    [ -d "$program/tessellan-launcher.new" ] || bad "an update can be staged"
    install 2
    has_program 2
    new_home plain
    install 1 >"$work/said"
    refuses grep -q "cannot update itself" "$work/said"
    [ ! -e "$program/tessellan-launcher.new" ] || bad "no update can be staged"
}

case_relative_data_home_is_ignored() {
    local before
    before=$(home_state)
    cd "$work"
    XDG_DATA_HOME=relative install 1
    [ ! -e "$work/relative" ] || bad "installed below the working directory"
    places
    has_installation 1
    mkdir -p "$work/archive1/share/relative"
    cd "$work/archive1/share"
    XDG_DATA_HOME=relative uninstall
    rmdir "$work/archive1/share/relative"
    is_as_found "$before"
}

case_other_data_home() {
    local before
    before=$(home_state)
    XDG_DATA_HOME=$HOME/data install 1
    XDG_DATA_HOME=$HOME/data places
    data=$HOME/data entry=$HOME/data/applications/$id.desktop has_installation 1
    # Without it the next one puts the entry elsewhere, and takes the first away.
    install 2
    places
    has_installation 2
    [ -z "$(find "$HOME/data" -type f 2>/dev/null)" ] || bad "two menu entries"
    uninstall
    is_as_found "$before"
}

case_any_mask() {
    local mask before
    for mask in 000 077 0777; do
        new_home "mask$mask"
        before=$(home_state)
        (umask $mask && install 1 && install 2)
        has_installation 2
        (umask $mask && uninstall)
        is_as_found "$before"
    done
}

case_archive_without_write_bits() {
    local before archive=$work/archive-ro
    before=$(home_state)
    cp -R "$work/archive1" "$archive"
    chmod -R a-w "$archive"
    "$archive/install"
    has_installation 1
    "$archive/install"
    has_installation 1
    install 2
    has_installation 2
    uninstall
    is_as_found "$before"
    chmod -R u+w "$archive"
    rm -rf "$archive"
}

case_archive_without_exec_bits() {
    local archive=$work/archive-nox
    cp -R "$work/archive1" "$archive"
    find "$archive" -type f -exec chmod a-x {} +
    sh "$archive/install"
    has_installation 1
    rm -rf "$archive"
    uninstall
}

case_renamed_home_uninstalls() {
    local before
    before=$(home_state)
    install 1
    mv "$HOME" "$HOME-renamed"
    HOME=$HOME-renamed && places
    uninstall
    is_as_found "$before"
}

case_renamed_home_upgrades() {
    local before
    before=$(home_state)
    install 1
    mv "$HOME" "$HOME-renamed"
    HOME=$HOME-renamed && places
    install 2
    has_installation 2
    uninstall
    is_as_found "$before"
}

# As installers of 1.0.16 left them: paths alone, none of the program's files.
older_installation() {
    install 1
    rm -rf "$program/setup" "$program/program-files" "$program/installed-files"
    find "$data" -type f >"$program/installed-files"
    echo "$command" >>"$program/installed-files"
    printf '%s\n' "$HOME/.local" "$HOME/.local/lib" "$data" "$data/applications" "$data/metainfo" \
        "$data/man" "$data/man/man1" "$data/icons" "$data"/icons/hicolor{,/48x48,/48x48/apps} \
        "$data"/icons/hicolor{/256x256,/256x256/apps,/11x11,/11x11/apps} "$HOME/.local/bin" \
        >"$program/made-directories"
}
case_upgrades_what_older_installers_left() {
    local before
    before=$(home_state)
    older_installation
    install 2
    has_installation 2
    uninstall
    is_as_found "$before"
    older_installation
    mv "$HOME" "$HOME-renamed"
    HOME=$HOME-renamed && places
    "$work/archive2/uninstall"
    is_as_found "$before"
}

case_mends_what_older_installers_left_of_a_cut_run() {
    local before
    before=$(home_state)
    mkdir -p "$HOME/.local/lib"
    cp -R "$work/archive1/program" "$HOME/.local/lib/.tessellan-launcher.new"
    rm -rf "$HOME/.local/lib/.tessellan-launcher.new/setup"
    chmod -R a-w "$HOME/.local/lib/.tessellan-launcher.new"
    install 2
    has_installation 2
    uninstall
    rmdir "$HOME/.local/lib" "$HOME/.local"
    is_as_found "$before"
}

case_data_stays() {
    install 1
    mkdir -p "$data/Tessellan"
    echo "a world" >"$data/Tessellan/world"
    uninstall
    [ "$(cat "$data/Tessellan/world")" = "a world" ] || bad "the player's data"
}
