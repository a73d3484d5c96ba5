#!/usr/bin/env bash
# Rebuilds data/aeurl.xml: a refresh of both sites against the sample site.
set -euo pipefail
cd "$(dirname "$0")/.."
bin="$PWD/build/bin"
log=$(mktemp)
"$bin/marquill-sitesim" --port 0 >"$log" &
site_pid=$!
trap 'kill "$site_pid" 2>/dev/null || true; rm -f "$log"' EXIT
for _ in $(seq 100); do grep -q "listening on" "$log" && break; sleep 0.1; done
address=$(sed -n 's/^listening on //p' "$log")
rm -f data/aeurl.xml
for site in ebay.co.uk ebay.com; do
    "$bin/marquill-cli" refresh --site "$site" --data data --proxy "http://$address"
done
