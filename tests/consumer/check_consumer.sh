#!/bin/sh
# Installs BUILD_DIR into a scratch prefix and builds the consumer project
# (this folder) against it, as another team's project would: find_package
# (lasercali) with the package's targets, and pkg-config for the headers.
# Then runs what it built: the camera frame record's layout through
# lasercali::sunxi_cam, and the consumer's own node plug-in under the
# installed kivrun, which must answer the two commands of echo.json.
#
# usage: check_consumer.sh BUILD_DIR LIBDIR CXX "CMAKE_ARGUMENTS" [EMULATOR...]
#   LIBDIR  the install's library folder below the prefix (CMAKE_INSTALL_LIBDIR)
#   CXX     the C++ compiler for the pkg-config check ("-" to leave it out,
#           as a cross build does)
#   CMAKE_ARGUMENTS  the consumer's configure arguments, blank-separated, in one word
set -u
build=$1 libdir=$2 cxx=$3 cmake_args=$4
shift 4
here=$(cd "$(dirname "$0")" && pwd)

work=$(mktemp -d "${TMPDIR:-/tmp}/consumer.XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() { echo "check_consumer: $*"; exit 1; }
prefix="$work/prefix"

cmake --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1 ||
  { cat "$work/install.log"; fail "installing $build failed"; }

# shellcheck disable=SC2086 # the configure arguments are separate words
cmake -S "$here" -B "$work/build" -Dlasercali_DIR="$prefix/$libdir/cmake/lasercali" $cmake_args \
  >"$work/configure.log" 2>&1 || { cat "$work/configure.log"; fail "configuring the consumer failed"; }
cmake --build "$work/build" >"$work/build.log" 2>&1 ||
  { cat "$work/build.log"; fail "building the consumer failed"; }
{ read -r plugin_dir && read -r data_dir && read -r plugin && read -r calc_plugin; } \
  <"$work/build/package_dirs.txt"
[ "$plugin_dir" = "$prefix/$libdir/kiv/plugins" ] || fail "lasercali_PLUGIN_DIR is $plugin_dir"
[ -f "$plugin_dir/liblasercali.so" ] || fail "no plug-in in $plugin_dir"
[ -f "$data_dir/scenarios/lasercali.json" ] || fail "no scenarios in lasercali_DATA_DIR $data_dir"
[ "$plugin" = "$plugin_dir/liblasercali.so" ] || fail "lasercali_PLUGIN is $plugin"
[ "$calc_plugin" = "$plugin_dir/liblasercalc.so" ] && [ -f "$calc_plugin" ] ||
  fail "lasercali_CALC_PLUGIN is $calc_plugin"

# The installed libraries are found through LD_LIBRARY_PATH. An emulator
# that sets the target's own LD_LIBRARY_PATH (qemu -E) gets ours in front.
libs="$prefix/$libdir"
if [ $# -gt 0 ]; then
  for arg do
    shift
    case "$arg" in
      LD_LIBRARY_PATH=*) arg="LD_LIBRARY_PATH=$libs:${arg#LD_LIBRARY_PATH=}" ;;
    esac
    set -- "$@" "$arg"
  done
fi
export LD_LIBRARY_PATH="$libs${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"

layout=$("$@" "$work/build/frame_layout") || fail "frame_layout failed: $layout"
[ "$layout" = "ImageFrame 40 bytes, data at 32, frame taken" ] || fail "frame_layout said: $layout"

# The echo node writes no pictures: it needs no private /tmp, so this runs
# also where none can be had.
"$@" "$prefix/bin/kivrun" --machine-tmp --plugin "$work/build/libecho_node.so" --log "$work/echo.jsonl" \
  "$here/echo.json" 2>"$work/kivrun.err" || { cat "$work/kivrun.err"; fail "kivrun with the echo node failed"; }
for distance in 21 42; do
  grep -q "\"topic\":\"CAMERACALIRES\".*\"kind\":2,.*\"distance\":$distance," "$work/echo.jsonl" ||
    { cat "$work/echo.jsonl"; fail "the echo node did not answer with distance $distance"; }
done

if [ "$cxx" != "-" ]; then
  printf '#include "msgs/calimsgs.h"\n#include "framework/kiv.h"\nint main() { return sizeof(kiv_camera_calires_msg) == 64 ? 0 : 1; }\n' \
    >"$work/headers.cpp"
  flags=$(PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig" pkg-config --cflags lasercali) ||
    fail "pkg-config knows no lasercali"
  # shellcheck disable=SC2086
  "$cxx" -std=c++17 $flags -o "$work/headers" "$work/headers.cpp" || fail "the headers do not compile with $flags"
  "$work/headers" || fail "kiv_camera_calires_msg is not 64 bytes"
fi
echo "the consumer built against the install in $prefix and ran"
