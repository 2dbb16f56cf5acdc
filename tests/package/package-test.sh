#!/usr/bin/env bash
# Builds the Debian package from the build folder once, installs it into a fresh root and runs
# the programs from there; checks its dependencies, its manual pages, its AppStream metadata,
# its desktop entry, and that lintian finds no error.
#   package-test.sh BUILD_DIR VERSION SOURCE_DIR
set -euo pipefail
build=$1
version=$2
source=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

(cd "$build" && cpack -G DEB -B "$work/out" --config CPackConfig.cmake >"$work/cpack.log" 2>&1) ||
  { cat "$work/cpack.log" >&2; fail "cpack -G DEB"; }
deb=$(ls "$work"/out/*.deb)
[[ $(dpkg-deb -f "$deb" Package) == velmora ]] || fail "package name"
[[ $(dpkg-deb -f "$deb" Version) == "$version" ]] || fail "version $(dpkg-deb -f "$deb" Version)"

# The dependencies come from the binaries: each library they link names its package.
depends=$(dpkg-deb -f "$deb" Depends)
echo "Depends: $depends"
for lib in libc6 libstdc++6 libsndfile1 libsoxr0 libasound2 libjack libavformat libavcodec libqt6core6 libqt6gui6 \
           libqt6widgets6 libqt6dbus6 qt6-qpa-plugins fonts-dejavu-core; do
  [[ $depends == *"$lib"* ]] || fail "Depends lacks $lib"
done

# Installed into a fresh root, the programs run from there.
root=$work/root
dpkg -x "$deb" "$root"
[[ $("$root/usr/bin/velmora-cli" --version) == "velmora-cli $version" ]] || fail "velmora-cli --version"
[[ $("$root/usr/bin/velmora" --version) == "velmora $version" ]] || fail "velmora --version"
"$root/usr/bin/velmora-cli" norms >/dev/null || fail "velmora-cli norms"

for f in usr/share/man/man1/velmora.1.gz usr/share/man/man1/velmora-cli.1.gz \
         usr/share/applications/velmora.desktop usr/share/icons/hicolor/scalable/apps/velmora.svg \
         usr/share/metainfo/app.velmora.Velmora.metainfo.xml usr/share/doc/velmora/copyright \
         usr/share/doc/velmora/changelog.gz; do
  [[ -f $root/$f ]] || fail "$f missing"
done

# Manual pages that render without a warning and cover every command and the exit codes.
for page in velmora velmora-cli; do
  text=$(MANWIDTH=100 man --warnings -l "$root/usr/share/man/man1/$page.1.gz" 2>"$work/man.err")
  [[ ! -s $work/man.err ]] || { cat "$work/man.err" >&2; fail "$page(1) has warnings"; }
  for word in NAME SYNOPSIS DESCRIPTION "EXIT STATUS" FILES EXAMPLES; do
    [[ $text == *"$word"* ]] || fail "$page(1) has no $word section"
  done
done
cli_page=$(MANWIDTH=100 man -l "$root/usr/share/man/man1/velmora-cli.1.gz" 2>/dev/null)
for command in analyse norms master batch multimaster calibrate ab devices play tone --from-list --slice --json --version; do
  [[ $cli_page == *"$command"* ]] || fail "velmora-cli(1) does not describe $command"
done

appstreamcli validate --no-net "$root/usr/share/metainfo/app.velmora.Velmora.metainfo.xml" ||
  fail "appstreamcli validate"
# The screenshots it shows are the repository's own (data/screenshots, published beside the site).
metainfo=$root/usr/share/metainfo/app.velmora.Velmora.metainfo.xml
shots=$(sed -n 's:.*<image>\(.*\)</image>.*:\1:p' "$metainfo")
[[ -n $shots ]] || fail "the metadata names no screenshot"
for url in $shots; do
  [[ -f $source/data/screenshots/$(basename "$url") ]] || fail "screenshot $(basename "$url") is not in data/screenshots"
done
desktop-file-validate "$root/usr/share/applications/velmora.desktop" || fail "desktop-file-validate"
# Every type the entry opens is one the metadata provides, and back.
entry_types=$(sed -n 's/^MimeType=//p' "$root/usr/share/applications/velmora.desktop" | tr ';' '\n' | sed '/^$/d' | sort)
meta_types=$(sed -n 's:.*<mediatype>\(.*\)</mediatype>.*:\1:p' "$root/usr/share/metainfo/app.velmora.Velmora.metainfo.xml" | sort)
[[ $entry_types == "$meta_types" ]] || fail "the desktop entry and the metadata name different types"

lintian --no-tag-display-limit "$deb" >"$work/lintian.log" 2>&1 || true
cat "$work/lintian.log"
! grep -q '^E:' "$work/lintian.log" || fail "lintian reports errors"
echo "package ok: $(basename "$deb")"
