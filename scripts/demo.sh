#!/bin/sh
# Installs what is missing, builds, and runs the main job: the calibration
# node is loaded into the host framework, built from the default
# configuration (scenarios/lasercali.json) and shows its start-up; the
# event log is printed and kept in out/startup.jsonl.
set -eu
cd "$(dirname "$0")/.."
. scripts/deps.sh
lasercali_install_deps

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc 2>/dev/null || echo 2)" --target kivrun lasercali

mkdir -p out
echo "== the node's console"
build/tools/kivrun/kivrun --echo --log out/startup.jsonl scenarios/startup.json
echo "== event log (out/startup.jsonl)"
cat out/startup.jsonl
