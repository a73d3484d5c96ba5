#!/usr/bin/env bash
# Sets up, builds what the demonstration needs, starts the sample site and runs a keyword search
# on it: in the Marquill window when there is a display, else with the command-line tool,
# printing the top of the list. The build's own output goes to build/demo-build.log.
#   tools/demo.sh [FullPath of a node]   (default: a sub-category of the US sample site)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd -P)
bin="$root/build/bin"
log="$root/build/demo-build.log"
node="${1:-Select Category~Coins & Paper Money~Bullion}"
display=
if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then display=1; fi
targets=(marquill-sitesim marquill-cli)
[ -z "$display" ] || targets+=(Marquill)

# One line of progress on the terminal, target by target; the set-up's own words pass through.
progress() {
    local target=$1 line
    while IFS= read -r line; do
        printf '%s\n' "$line" >>"$log"
        if [[ $line =~ ^\[\ *([0-9]+)%\] ]]; then
            printf '\rdemo: building %-16s %3s%%' "$target" "${BASH_REMATCH[1]}" >&2
        elif [[ $line == setup:* ]]; then
            printf '\r%s\n' "$line" >&2
        fi
    done
}
mkdir -p build
: >"$log"
echo "demo: building ${targets[*]}; the build's output goes to build/demo-build.log" >&2
for target in "${targets[@]}"; do
    if [ "$target" = "${targets[0]}" ]; then
        build=(tools/setup.sh "$target") # installs what is missing and configures first
    else
        build=(cmake --build build -j"$(nproc)" --target "$target")
    fi
    if ! "${build[@]}" 2>&1 | progress "$target"; then
        printf '\ndemo: the build failed; the end of build/demo-build.log:\n' >&2
        tail -n 20 "$log" >&2
        exit 1
    fi
done
printf '\rdemo: built %-40s\n' "${targets[*]}" >&2

source tools/sitesim.sh
start_sitesim "$bin"
address="$SITESIM_ADDRESS"
echo "demo: the sample site answers on $address" >&2

if [ -n "$display" ]; then
    IFS='~' read -r -a levels <<<"$node"
    where="click \"${levels[-1]}\" in the tree"
    [ ${#levels[@]} -lt 3 ] || where="open \"${levels[1]}\" in the tree and click \"${levels[2]}\""
    echo "demo: in the window click \"Go to Marquill\", $where, then \"Get Keywords\"" >&2
    echo "demo: the sample site keeps running until the last Marquill window closes" >&2
    # The program reads no options; the platform's proxy setting points it at the sample site.
    http_proxy="http://$address" "$bin/Marquill" || true
    # A new search is a detached process under the other name: wait until no copy from here runs.
    running() {
        local pid
        for pid in $(pgrep -x 'Marquillb?' || true); do
            case "$(readlink "/proc/$pid/exe" 2>/dev/null)" in
            "$bin/Marquill" | "$bin/Marquillb") return 0 ;;
            esac
        done
        return 1
    }
    idle=0
    while [ $idle -lt 3 ]; do
        if running; then idle=0; else idle=$((idle + 1)); fi
        sleep 1
    done
else
    echo "demo: no display; searching \"$node\" with the command-line tool" >&2
    list=$(mktemp)
    "$bin/marquill-cli" search --site ebay.com --node "$node" --auctions 500 --proxy "http://$address" >"$list"
    echo "demo: the 25 most frequent words (word,count):" >&2
    head -n 25 "$list"
    rm -f "$list"
fi
