#!/usr/bin/env bash
# Sets up, builds, starts the sample site and runs a keyword search on it: in the Marquill window
# when there is a display, else with the command-line tool, printing the top of the list.
#   tools/demo.sh [FullPath of a node]   (default: a sub-category of the US sample site)
set -euo pipefail
cd "$(dirname "$0")/.."
tools/setup.sh
bin="$PWD/build/bin"
node="${1:-Select Category~Coins & Paper Money~Bullion}"

source tools/sitesim.sh
start_sitesim "$bin"
address="$SITESIM_ADDRESS"
echo "demo: the sample site answers on $address" >&2

if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
    # The program reads no options; the platform's proxy setting points it at the sample site.
    http_proxy="http://$address" "$bin/Marquill"
else
    echo "demo: no display; searching \"$node\" with the command-line tool" >&2
    list=$(mktemp)
    "$bin/marquill-cli" search --site ebay.com --node "$node" --auctions 500 --proxy "http://$address" >"$list"
    echo "demo: the 25 most frequent words (word,count):" >&2
    head -n 25 "$list"
    rm -f "$list"
fi
