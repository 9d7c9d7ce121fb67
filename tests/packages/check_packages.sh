#!/bin/sh
# Makes the Debian packages of BUILD_DIR with cpack and checks them as a
# user of the packages would meet them:
#  - four packages, lasercali-plugin (the calibration plug-in alone),
#    lasercali-calc (the calculation plug-in alone), lasercali-tools and
#    lasercali-dev, each with its copyright file and changelog;
#  - each package's Depends covers every library package dpkg-shlibdeps finds
#    its binaries need, at least at the version it finds;
#  - unpacked into a scratch root (dpkg -x), the installed kivrun shows its
#    version and plays the installed factory round with the installed
#    plug-in, found without --plugin, writing the installed expected log,
#    and the installed factory round with computing calculation nodes with
#    the installed calculation plug-in; with a plug-in gone it says which
#    file it missed;
#  - lintian (when installed) reports no error.
#
# usage: check_packages.sh BUILD_DIR SOURCE_DIR
set -u
build=$1 source=$2
work=$(mktemp -d "${TMPDIR:-/tmp}/packages.XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() { echo "check_packages: $*"; exit 1; }

(cd "$build" && cpack -G DEB -B "$work/packages" >"$work/cpack.log" 2>&1) ||
  { cat "$work/cpack.log"; fail "cpack failed"; }
version=$(sed -n 's/^#define LASERCALI_VERSION "\(.*\)"$/\1/p' "$build/generated/lasercali_version.h")
arch=$(dpkg --print-architecture)
for package in plugin calc tools dev; do
  deb="$work/packages/lasercali-${package}_${version}_$arch.deb"
  [ -f "$deb" ] || fail "no $deb (cpack made: $(ls "$work/packages"))"
  dpkg-deb -c "$deb" | grep "usr/share/doc/lasercali-$package/copyright$" >/dev/null ||
    fail "lasercali-$package has no copyright file"
  mkdir -p "$work/$package"
  dpkg-deb -x "$deb" "$work/$package"
  dpkg-deb -x "$deb" "$work/root"
done

# Each plug-in package holds its plug-in and its two doc files, nothing else.
for pair in plugin:liblasercali.so calc:liblasercalc.so; do
  package=${pair%%:*} file=${pair#*:}
  files=$(cd "$work/$package" && find . -type f | sort)
  found=$(cd "$work/$package" && find ./usr/lib -path "*/kiv/plugins/$file")
  expected=$(printf '%s\n' "./usr/share/doc/lasercali-$package/changelog.gz" \
    "./usr/share/doc/lasercali-$package/copyright" "$found" | sort)
  [ -n "$found" ] && [ "$files" = "$expected" ] || fail "lasercali-$package holds: $(echo $files)"
done

# Depends against dpkg-shlibdeps. Our own libraries (libkiv, libsunxi_cam)
# come from lasercali-tools, which the plug-in packages name themselves.
mkdir -p "$work/shlibdeps/debian"
echo "Source: lasercali" >"$work/shlibdeps/debian/control"
for package in plugin calc tools; do
  depends=$(dpkg-deb -f "$work/packages/lasercali-${package}_${version}_$arch.deb" Depends)
  binaries=$(find "$work/$package" -type f \( -name '*.so*' -o -perm -u+x \) ! -name '*.gz' | sort)
  needed=$(cd "$work/shlibdeps" && dpkg-shlibdeps -O --ignore-missing-info -l"$work/root/usr/lib" \
    $(find "$work/root/usr/lib" -name 'libkiv.so.*' -printf '-l%h ' -quit) $binaries 2>/dev/null |
    sed -n 's/^shlibs:Depends=//p')
  [ -n "$needed" ] || fail "dpkg-shlibdeps found nothing for lasercali-$package"
  echo "$needed" | tr ',' '\n' | sed 's/^ *//' | while read -r name op want; do
    want=${want%)}
    op=${op#(}
    [ "$op" = ">=" ] || fail "dpkg-shlibdeps said '$name $op $want'"
    ours=$(echo "$depends" | tr ',' '\n' | sed 's/^ *//' | grep "^$name (>= ") ||
      fail "lasercali-$package does not depend on $name (dpkg-shlibdeps: >= $want)"
    have=$(echo "$ours" | sed 's/^[^ ]* (>= \(.*\))$/\1/')
    dpkg --compare-versions "$have" ge "$want" ||
      fail "lasercali-$package depends on $name >= $have, but its binaries need >= $want"
  done || exit 1
done

# The installed tools, from the scratch root.
root="$work/root"
libdir=$(dirname "$(find "$root/usr/lib" -name 'libkiv.so.0' | head -n 1)")
export LD_LIBRARY_PATH="$libdir"
shown=$("$root/usr/bin/kivrun" --version) || fail "the installed kivrun --version failed"
[ "$(echo "$shown" | head -n 1)" = "kivrun $version" ] || fail "the installed kivrun --version said: $shown"
"$root/usr/bin/stripe-inspect" --version >/dev/null || fail "the installed stripe-inspect --version failed"

shared="$root/usr/share/lasercali/scenarios"
"$source/tests/scenarios/check_scenario.sh" "$root/usr/bin/kivrun" "$shared/factory_plane_round.json" \
  "$shared/expected/factory_plane_round.jsonl" 0
case $? in
  0) ;;
  77) exit 77 ;;  # no private /tmp for the node: skipped, as check_scenario.sh says
  *) fail "the installed factory round differs" ;;
esac

"$source/tests/scenarios/check_scenario.sh" "$root/usr/bin/kivrun" "$shared/factory_compute_round.json" \
  "$shared/expected/factory_compute_round.jsonl" 0
case $? in
  0) ;;
  77) exit 77 ;;
  *) fail "the installed factory round with computing calculation nodes differs" ;;
esac

plugin=$(find "$root/usr/lib" -name liblasercali.so)
mv "$plugin" "$plugin.away"
"$root/usr/bin/kivrun" "$shared/startup.json" >"$work/without.jsonl" 2>"$work/without.err"
code=$?
mv "$plugin.away" "$plugin"
[ "$code" = 1 ] || fail "without its plug-in the installed kivrun exited with $code, not 1"
grep -q "cannot load plug-in '$root/usr/bin/../lib/.*kiv/plugins/liblasercali.so'" "$work/without.err" ||
  { cat "$work/without.err"; fail "without its plug-in the installed kivrun did not name the file"; }

calc=$(find "$root/usr/lib" -name liblasercalc.so)
mv "$calc" "$calc.away"
"$root/usr/bin/kivrun" --private-tmp "$shared/factory_compute_round.json" >"$work/without.jsonl" \
  2>"$work/without.err"
code=$?
mv "$calc.away" "$calc"
[ "$code" = 6 ] && exit 77  # no private /tmp for the node: skipped
[ "$code" = 1 ] || fail "without the calculation plug-in the installed kivrun exited with $code, not 1"
grep -q "cannot load plug-in '$root/usr/bin/../lib/.*kiv/plugins/liblasercalc.so'" "$work/without.err" ||
  { cat "$work/without.err"; fail "without the calculation plug-in kivrun did not name the file"; }

if command -v lintian >/dev/null 2>&1; then
  lintian --fail-on error \
    "$work"/packages/*.deb >"$work/lintian.txt" 2>&1 || { cat "$work/lintian.txt"; fail "lintian reports errors"; }
  grep '^E:' "$work/lintian.txt" && fail "lintian reports errors"
else
  echo "lintian is not installed: the packages were not checked with it"
fi
echo "the packages of $version for $arch install, run the factory round and pass lintian"
