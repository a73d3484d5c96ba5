# Sourced by the scripts that need the sample site: start_sitesim BIN_DIR [options] starts it on a
# free loopback port, sets SITESIM_ADDRESS (host:port) and stops it when the script exits.
start_sitesim() {
    local bin="$1"
    shift
    local log
    log=$(mktemp)
    "$bin/marquill-sitesim" --port 0 "$@" >"$log" &
    SITESIM_PID=$!
    trap 'kill "$SITESIM_PID" 2>/dev/null || true' EXIT
    for _ in $(seq 100); do grep -q "listening on" "$log" && break; sleep 0.1; done
    SITESIM_ADDRESS=$(sed -n 's/^listening on //p' "$log")
    rm -f "$log"
    [ -n "$SITESIM_ADDRESS" ] || { echo "the sample site did not start" >&2; return 1; }
}
