# Sourced by installer: two runs at once, and runs that are killed.
# shellcheck shell=bash

case_two_at_once() {
    local i first second failed=0 before
    before=$(home_state)
    for ((i = 1; i <= doubles; ++i)); do
        case $((i % 3)) in
            0) ;;
            1) install $((i % 2 + 1)) >"$work/run0" ;;
            2) if [ -e "$program" ]; then uninstall >"$work/run0"; fi ;;
        esac
        install 1 >"$work/run1" 2>&1 &
        first=$!
        install 2 >"$work/run2" 2>&1 &
        second=$!
        wait $first || ((++failed))
        wait $second || ((++failed))
        [ $failed -eq 0 ] || bad "run $i: $(cat "$work"/run[12])"
        # Whichever came last.
        (has_installation 1) >"$work/run0" || has_installation 2
    done
    uninstall
    is_as_found "$before"
    echo "figures: ($doubles double runs, $failed failed, no installation damaged)"
}

# Who waits finds a lock that has lost its name, and somebody who comes meanwhile makes another.
case_many_at_once() {
    local i pid before pids
    before=$(home_state)
    for ((i = 0; i < doubles; ++i)); do
        pids=()
        for pid in 1 2 1 2 1 2; do
            install $pid >"$work/run$pid" 2>&1 &
            pids+=($!)
            sleep 0.05
        done
        for pid in "${pids[@]}"; do wait "$pid" || bad "$(cat "$work"/run[12])"; done
        (has_installation 1) >"$work/run0" || has_installation 2
    done
    uninstall
    is_as_found "$before"
}

case_install_and_uninstall_at_once() {
    local i before
    before=$(home_state)
    for ((i = 1; i <= doubles; ++i)); do
        install 1
        install 2 >"$work/run1" 2>&1 &
        "$work/archive1/uninstall" >"$work/run2" 2>&1 &
        wait -n || bad "$(cat "$work"/run[12])"
        wait -n || bad "$(cat "$work"/run[12])"
        if [ -e "$program" ]; then has_installation 2 && uninstall; fi
        is_as_found "$before"
    done
}

# Every command that a run starts is counted, and the run with all it started killed before one.
make_counting_tools() {
    local name
    counting=$work/counting
    [ ! -d "$counting" ] || return 0
    mkdir "$counting"
    for name in awk cat chmod cmp cp dirname find flock getconf grep head id ln mkdir mv readlink rm \
        rmdir sed sha256sum sleep sort sync tail timeout touch tr uname xargs; do
        write_counting "$counting/$name" "/usr/bin/$name"
    done
}
# Each adds a line; those that start at the same time may see each other's.
write_counting() {
    cat >"$1" <<END
#!/bin/sh
echo >>"$work/count"
n=0
while read -r _; do n=\$((n + 1)); done <"$work/count"
[ "\${KILL_AT:-0}" -eq 0 ] || [ \$n -lt "\$KILL_AT" ] || kill -9 0
exec $2 "\$@"
END
    chmod +x "$1"
}

# counted <moment> <command> ...: 0 when it ran to its end.
counted() {
    local at=$1
    shift
    : >"$work/count"
    KILL_AT=$at PATH=$counting:$PATH setsid --wait "$@" >"$work/killed.log" 2>&1
}
# A copy that runs the counting tools where the archive has a program of its own.
counting_archive() {
    rm -rf "$work/archive-counting"
    cp -R "$work/archive$1" "$work/archive-counting"
    cp "$exchange" "$work/exchange-$1"
    write_counting "$work/archive-counting/program/setup/exchange" "$work/exchange-$1"
}

# The home as a snapshot, so that every moment begins alike.
snapshot() { rm -rf "$work/snapshot" && cp -a "$HOME" "$work/snapshot"; }
restore() { rm -rf "$HOME" && cp -a "$work/snapshot" "$HOME"; }

# at_moments <what holds afterwards> <command> ...: the command, killed at every chosen moment.
at_moments() {
    local holds=$1 all step at tried=0
    shift
    snapshot
    counted 0 "$@" || bad "it fails without being killed: $(cat "$work/killed.log")"
    all=$(wc -l <"$work/count")
    step=1
    if [ "$moments" -gt 0 ] && [ "$all" -gt "$moments" ]; then step=$((all / moments)); fi
    for ((at = 1 + RANDOM % step; at <= all; at += step)); do
        restore
        # What runs on for a moment holds the lock.
        if counted $at "$@"; then bad "moment $at was not reached"; fi
        leads_somewhere || bad "moment $at of $all"
        "$holds" || bad "moment $at of $all"
        ((++tried))
    done
    # And the group at any time, also in the midst of a copy.
    local more=$((tried / 4))
    if [ "$moments" -eq 0 ] && [ $((tried + more)) -lt 100 ]; then more=$((100 - tried)); fi
    for ((at = 0; at < more; ++at)); do
        restore
        setsid --wait "$@" >"$work/killed.log" 2>&1 &
        sleep "0.$(printf %03d $((RANDOM % 150)))"
        pkill_group $!
        leads_somewhere || bad "at some time"
        "$holds" || bad "at some time"
        ((++tried))
    done
    echo "figures: ($tried kills, $more of them at random; the run has $all commands)"
}
# Ends the session that a process leads or waits for, and nothing else.
pkill_group() {
    local child
    for child in $(ps -o pid= --ppid "$1") "$1"; do kill -9 -- "-$child" 2>/dev/null || true; done
    wait "$1" 2>/dev/null || true
}

# After a kill the first time: nothing is there, or all of the program; the next run completes it,
# and an uninstallation takes away what there is.
after_first() {
    if [ -e "$program" ]; then (has_program 1) || return; fi
    rm -rf "$work/killed-home"
    cp -a "$HOME" "$work/killed-home"
    "$work/archive1/uninstall" || [ ! -e "$program" ] || return
    is_as_found "$found"
    rm -rf "$HOME" && mv "$work/killed-home" "$HOME"
    install 1 && has_installation 1 && uninstall && is_as_found "$found"
}
case_killed_while_it_installs() {
    make_counting_tools
    counting_archive 1
    found=$(home_state)
    at_moments after_first "$work/archive-counting/install"
}

# The old or the new program, with its menu entry and its command.
after_upgrade() {
    (has_program 1) >"$work/run0" || (has_program 2) || return
    [ -e "$entry" ] && [ -L "$command" ] || return
    install 2 && has_installation 2 && uninstall && is_as_found "$found"
}
case_killed_while_it_upgrades() {
    make_counting_tools
    found=$(home_state)
    install 1
    counting_archive 2
    at_moments after_upgrade "$work/archive-counting/install"
}
case_killed_while_it_upgrades_an_older_installation() {
    make_counting_tools
    found=$(home_state)
    older_installation
    counting_archive 2
    at_moments after_upgrade "$work/archive-counting/install"
}

# Whole, or gone, or without its menu entry; never an entry without a program.
after_uninstall() {
    if [ -e "$program" ]; then
        (has_program 1) || return
    fi
    rm -rf "$work/killed-home"
    cp -a "$HOME" "$work/killed-home"
    install 2 && has_installation 2 && uninstall && is_as_found "$found" || return
    rm -rf "$HOME" && mv "$work/killed-home" "$HOME"
    # What was killed before its first or after its last change has nothing left to remove.
    "$work/archive1/uninstall" || [ ! -e "$program" ] || return
    is_as_found "$found"
}
case_killed_while_it_uninstalls() {
    make_counting_tools
    found=$(home_state)
    install 1
    at_moments after_uninstall "$work/archive1/uninstall"
}
