#!/usr/bin/env bash
# The installed layout and Debian's checks of it.
#   check_install.sh BUILD        cmake --install into a temporary prefix; the desktop file and
#                                 the metainfo validated (ctest runs this one: about a second)
#   check_install.sh --deb BUILD  cpack -G DEB, the package unpacked with dpkg-deb -x, and lintian
#                                 (tools/test.sh runs this one after ctest: it takes a while)
# A validator that is missing is skipped with a note on standard error.
set -euo pipefail
deb=0
[ "$1" = "--deb" ] && { deb=1; shift; }
build=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
id=org.marquill.Marquill
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
fail() { echo "check_install: $*" >&2; exit 1; }
skip() { echo "check_install: NOTE: $1 is not installed; that check is skipped" >&2; }

if [ $deb = 0 ]; then
    cmake --install "$build" --prefix "$work" >/dev/null
    root=$work
else
    (cd "$build" && cpack -G DEB -B "$work/pkg" >/dev/null)
    package="$work/pkg/marquill_${version}_amd64.deb"
    [ -f "$package" ] || fail "no $package"
    dpkg-deb -f "$package" Depends | grep -q libqt6widgets6 || fail "no library dependencies"
    dpkg-deb -x "$package" "$work/root"
    root=$work/root/usr
fi

for f in bin/Marquill bin/Marquillb bin/marquill-cli bin/marquill-sitesim \
         share/marquill/{aeurl.xml,exclude.dat,helpfile.htm,anwork.gif,logo.png} \
         share/applications/$id.desktop share/metainfo/$id.metainfo.xml \
         share/icons/hicolor/{16x16,32x32,48x48,256x256}/apps/$id.png share/icons/hicolor/scalable/apps/$id.svg \
         share/man/man1/{Marquill,Marquillb,marquill-cli,marquill-sitesim}.1.gz share/doc/marquill/{copyright,changelog.gz}; do
    [ -e "$root/$f" ] || fail "missing $f"
done
[ "$(ls "$root/bin")" = "$(printf 'Marquill\nMarquillb\nmarquill-cli\nmarquill-sitesim')" ] || fail "bin/ holds $(ls "$root/bin")"
for program in Marquill Marquillb marquill-cli marquill-sitesim; do
    [ "$("$root/bin/$program" --version)" = "$program $version" ] || fail "$program --version"
done

if [ $deb = 0 ]; then
    if command -v desktop-file-validate >/dev/null; then
        desktop-file-validate "$root/share/applications/$id.desktop"
    else skip desktop-file-validate; fi
    if command -v appstreamcli >/dev/null; then
        appstreamcli validate --no-net "$root/share/metainfo/$id.metainfo.xml"
    else skip appstreamcli; fi
elif command -v lintian >/dev/null; then
    lintian --fail-on error "$package"
else skip lintian; fi
echo "check_install: the installed layout holds every file"
