#!/usr/bin/env bash
# Builds the fuzz targets of tests/fuzz with clang (libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer) into build-fuzz/, then runs each in turn for SECONDS. A target starts
# from its committed seeds and regression cases, pages of the sample site and the files of data/;
# what it learns stays in build-fuzz/corpus/TARGET for the next run. An input that fails is written
# to build-fuzz/failures/: copy it into tests/fuzz/regressions/TARGET/ under a name that says what
# it found, and the normal suite replays it from then on.
#   tools/fuzz.sh SECONDS [html|scan|tally|catalogue|numeric]...   (default: all five)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:?usage: tools/fuzz.sh SECONDS [html|scan|tally|catalogue|numeric]...}"
shift
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(html scan tally catalogue numeric)

build=build-fuzz
MARQUILL_BUILD_DIR=$build MARQUILL_FUZZ=ON tools/setup.sh
mkdir -p "$build/failures" "$build/tmp"
seeds="$build/seeds"
rm -rf "$seeds"
mkdir -p "$seeds"/{html,scan,tally,catalogue,numeric}

# Pages of the sample site, as the scan and the refresh read them.
. tools/sitesim.sh
start_sitesim "$build/bin"
fetch() { curl -sf -x "http://$SITESIM_ADDRESS" -o "$2" "$1"; }
fetch http://listings.ebay.com/ "$seeds/html/index-us"
fetch http://listings.ebay.co.uk/ "$seeds/html/index-uk"
mains=0
subs=0
while IFS=$'\t' read -r path url; do
    if [[ "$path" == *~*~* ]]; then
        if [ $subs -lt 3 ]; then fetch "${url}QQsorecordsperpageZ50" "$seeds/scan/listing-$subs"; fi
        subs=$((subs + 1))
    elif [[ "$path" == *~* ]]; then
        if [ $mains -lt 3 ]; then fetch "$url" "$seeds/html/main-$mains"; fi
        mains=$((mains + 1))
    fi
done < <("$build/bin/marquill-sitesim" --print-catalogue ebay.com)
cp "$seeds"/scan/* "$seeds/html/"
cp tests/pages/*.htm tests/pages/soup/*.htm "$seeds/html/"
cp tests/pages/*.htm tests/pages/soup/*.htm "$seeds/scan/"
# The shipped exclusion list over titles cut from a listing page.
{ cat data/exclude.dat; printf '\0'; sed 's/<[^>]*>/\n/g' "$seeds"/scan/listing-* | awk 'NF && ++n <= 400'; } \
    >"$seeds/tally/listing-titles"
cp data/aeurl.xml tests/data/catalogue/*.xml "$seeds/catalogue/"

failed=()
for target in "${targets[@]}"; do
    mkdir -p "$build/corpus/$target"
    log="$build/fuzz-$target.log"
    echo "fuzz: $target for $seconds s" >&2
    inputs=("$build/corpus/$target" "$seeds/$target" "tests/fuzz/regressions/$target")
    [ ! -d "tests/fuzz/seeds/$target" ] || inputs+=("tests/fuzz/seeds/$target")
    options=(-max_total_time="$seconds" -timeout=20 -max_len=16384 -rss_limit_mb=2560 -print_final_stats=1)
    dict="tests/fuzz/${target/scan/html}.dict"
    [ ! -f "$dict" ] || options+=(-dict="$dict")
    if TMPDIR="$PWD/$build/tmp" "$build/bin/fuzz_$target" "${options[@]}" \
        -artifact_prefix="$build/failures/$target-" "${inputs[@]}" >"$log" 2>&1; then
        runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
        echo "fuzz: $target: $runs runs, no failure; corpus $(ls "$build/corpus/$target" | wc -l) inputs" >&2
    else
        failed+=("$target")
        echo "fuzz: $target FAILED; see $log and $build/failures/" >&2
        grep -E "^(==|SUMMARY|.*check failed)" "$log" | head -20 >&2 || true
    fi
done
[ ${#failed[@]} -eq 0 ] || { echo "fuzz: failures in ${failed[*]}" >&2; exit 1; }
