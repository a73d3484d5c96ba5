#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite; exits non-zero on any failure.
#   tools/test.sh          the normal build, in build/
#   tools/test.sh --asan   the sanitizer build, in build-asan/
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "${1:-}" = "--asan" ]; then
    export MARQUILL_BUILD_DIR=build-asan MARQUILL_SANITIZE=ON
    export LSAN_OPTIONS="suppressions=$PWD/tools/lsan.supp:print_suppressions=0"
    export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1" UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
fi
tools/setup.sh
build="${MARQUILL_BUILD_DIR:-build}"
(cd "$build" && QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j"$(nproc)")
# The Debian package of the normal build, outside ctest because cpack and lintian are slow.
if [ "${1:-}" != "--asan" ]; then
    tests/install/check_install.sh --deb "$build"
fi
