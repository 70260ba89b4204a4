#!/usr/bin/env bash
# demo.sh BIN FOLDER: records this machine for a few seconds with the programs in BIN, kills the recorder and the
# sampler on the way, and shows what was recorded into FOLDER.
set -euo pipefail
readonly bin=$1 folder=$2
readonly config=$(dirname "${BASH_SOURCE[0]}")/demo.conf

kill_hard() {
    { kill -9 "$1" && wait "$1"; } 2>/dev/null || true
    sleep 0.4
}

start_recorder() {
    "$bin/recorder" "$folder" &
    recorder=$!
}

mkdir -p "$folder"
rm -f "$folder"/*.rec
recorder=0
trap 'kill "$recorder" 2>/dev/null || true' EXIT

start_recorder
"$bin/sampler" --seconds=60 "$config" "$folder" &
sampler=$!
sleep 1.5

echo "kill -9 the recorder: the sampler keeps what it is not rid of, and the next recorder goes on"
kill_hard "$recorder"
start_recorder
sleep 1.5

echo "kill -9 the sampler: what was accepted is there, once"
kill_hard "$sampler"
"$bin/sampler" --seconds=3 "$config" "$folder"

kill -INT "$recorder"
wait "$recorder"
trap - EXIT
echo
"$bin/viewer" --html="$folder/recording.html" "$folder"
echo "The same as a page: file://$folder/recording.html"
