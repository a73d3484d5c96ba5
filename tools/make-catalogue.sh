#!/usr/bin/env bash
# Rebuilds data/aeurl.xml: a refresh of both sites against the sample site.
set -euo pipefail
cd "$(dirname "$0")/.."
bin="$PWD/build/bin"
source tools/sitesim.sh
start_sitesim "$bin"
address="$SITESIM_ADDRESS"
rm -f data/aeurl.xml
for site in ebay.co.uk ebay.com; do
    "$bin/marquill-cli" refresh --site "$site" --data data --proxy "http://$address"
done
