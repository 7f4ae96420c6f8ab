# Sourced by the checks beside it: a home of their own, and what they start is ended again.
# shellcheck shell=bash

work=$(mktemp -d)
started=()
finish() {
    for pid in "${started[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait
    chmod -R u+w "$work" 2>/dev/null || true
    rm -rf "$work"
}
trap finish EXIT

fail() {
    echo "FAILED: $*"
    tail -n 5 "$work"/*.log 2>/dev/null | cut -c 1-200 || true
    exit 1
}

# Waits for a condition, not for a time; the limit only ends what would never come.
await() {
    local what=$1 tries=300
    shift
    until "$@" >/dev/null 2>&1; do
        ((tries--)) || fail "$what"
        sleep 0.1
    done
}

# Nothing of the person who runs the checks: no settings, no session, no Wayland.
private_home() {
    export HOME=$1 XDG_RUNTIME_DIR=$work/run
    # No bus either; without an address one would be started, and stay.
    export DBUS_SESSION_BUS_ADDRESS=unix:path=$work/no-bus
    unset XDG_CONFIG_HOME XDG_DATA_HOME XDG_CACHE_HOME WAYLAND_DISPLAY
    mkdir -p "$HOME"
    mkdir -m 700 "$XDG_RUNTIME_DIR"
}

# start_weston [<option> ...]: without any it shows nothing.
start_weston() {
    [ $# -gt 0 ] || set -- --backend=headless-backend.so
    weston "$@" --socket=wayland-test --idle-time=0 >"$work/weston.log" 2>&1 &
    started+=($!)
    await "a Wayland compositor" [ -S "$XDG_RUNTIME_DIR/wayland-test" ]
}

# make_authority <host> ...: an authority to trust in $work/authorities, and a server's certificate
# and key for the hosts in $work/server.{crt,key}.
make_authority() {
    local names=DNS:localhost host
    for host; do names+=,DNS:$host; done
    mkdir "$work/authorities"
    {
        openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=Authority of this run" \
            -keyout "$work/ca.key" -out "$work/authorities/ca.pem" &&
            openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=localhost" \
                -addext "subjectAltName=$names" -addext "basicConstraints=critical,CA:false" \
                -CA "$work/authorities/ca.pem" -CAkey "$work/ca.key" \
                -keyout "$work/server.key" -out "$work/server.crt" &&
            openssl rehash "$work/authorities"
    } >"$work/openssl.log" 2>&1 || fail "certificates"
}
