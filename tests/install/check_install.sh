#!/usr/bin/env bash
# The installed layout, as layout.ref lists it, and Debian's checks of it.
#   check_install.sh BUILD        cmake --install into a temporary prefix, then the desktop file and
#                                 the metainfo validated (ctest runs this one: about a second)
#   check_install.sh --deb BUILD  cpack -G DEB, the package unpacked with dpkg-deb -x, then lintian
#                                 (tools/test.sh runs this one after ctest: it takes a while)
# A validator that is missing is skipped with a note on standard error.
set -euo pipefail
deb=0
[ "$1" = "--deb" ] && deb=1 && shift
build=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
fail() { echo "check_install: $*" >&2; exit 1; }
have() { command -v "$1" >/dev/null || { echo "check_install: NOTE: no $1 here; its check is skipped" >&2; false; }; }

if [ $deb = 0 ]; then
    cmake --install "$build" --prefix "$work/usr" >/dev/null
else
    package="$work/marquill_${version}_amd64.deb"
    (cd "$build" && cpack -G DEB -B "$work" >/dev/null) && [ -f "$package" ] || fail "no $package"
    dpkg-deb -f "$package" Depends | grep -q libqt6widgets6 || fail "no library dependencies"
    dpkg-deb -x "$package" "$work/root" && [ "$(ls "$work/root")" = usr ] || fail "not all under /usr"
    mv "$work/root/usr" "$work/usr"
fi
diff -u "$(dirname "$0")/layout.ref" <(cd "$work/usr" && find . ! -type d | sort) || fail "the layout differs"
for program in Marquill Marquillb marquill-cli marquill-sitesim; do
    [ "$("$work/usr/bin/$program" --version)" = "$program $version" ] || fail "$program --version"
done
if [ $deb = 1 ]; then
    ! have lintian || lintian --fail-on error "$package"
else
    ! have desktop-file-validate || desktop-file-validate "$work"/usr/share/applications/*.desktop
    ! have appstreamcli || appstreamcli validate --no-net "$work"/usr/share/metainfo/*.metainfo.xml
fi
echo "check_install: the layout and the validators agree" >&2
