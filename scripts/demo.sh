#!/usr/bin/env bash
# The demo: set up, build qmload-cli and qmload-sim, build the sample image from
# examples/, flash it into a simulated device on a pseudo-terminal, and check the
# device's memory against the image's three segments.
#
#   QMLOAD_SKIP_SETUP=1   do not run scripts/setup.sh
#   QMLOAD_BUILD_DIR=DIR  build there instead of the linux preset's folder
#   QMLOAD_JOBS=N         parallel build jobs (default 2)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
started=$SECONDS

if [ "${QMLOAD_SKIP_SETUP:-0}" != 1 ]; then
  bash scripts/setup.sh
fi

build=${QMLOAD_BUILD_DIR:-$root/build/linux}
echo "demo: building qmload-cli and qmload-sim in $build"
cmake --preset linux -B "$build" >/dev/null
cmake --build "$build" -j "${QMLOAD_JOBS:-2}" --target qmload-cli qmload-sim
cli=$build/cli/qmload-cli
sim=$build/sim/qmload-sim

out=$(mktemp -d "${TMPDIR:-/tmp}/qmload-demo.XXXXXX")
simPid=
cleanup() {
  if [ -n "$simPid" ]; then
    kill -TERM "$simPid" 2>/dev/null || true
    wait "$simPid" 2>/dev/null || true
  fi
  rm -rf "$out"
}
trap cleanup EXIT

echo "demo: building the sample image"
image=$out/project.alf
"$cli" build-aelf --map examples/__output__.map --cfg examples/test.cpp_CFG.bin \
  --object examples/__target_out__.o --res examples/test.cpp_RES.bin -o "$image" >"$out/build.log"
info=$("$cli" info --json "$image")
# The three segments, in flashing order: program, resources, header block.
mapfile -t addresses < <(grep -o '"address": *[0-9]*' <<<"$info" | grep -o '[0-9]*$')
mapfile -t sizes < <(grep -o '"size": *[0-9]*' <<<"$info" | grep -o '[0-9]*$')
if [ "${#addresses[@]}" -ne 3 ] || [ "${#sizes[@]}" -ne 3 ]; then
  echo "demo: cannot read the segments of $image"
  exit 1
fi
# Where each segment's bytes stand in the file: the header block after the 4-byte
# magic, the program after the header, the resources after the program.
fileOffsets=(68 $((68 + sizes[0])) 4)

echo "demo: starting the simulated device"
"$sim" --link "$out/device" --dump "$out/flash.bin" >"$out/sim.log" 2>&1 &
simPid=$!
for _ in $(seq 100); do
  grep -q '^READY ' "$out/sim.log" && break
  sleep 0.05
done
grep -q '^READY ' "$out/sim.log" || { echo "demo: the simulator did not start"; cat "$out/sim.log"; exit 1; }

echo "demo: flashing $(stat -c %s "$image") bytes"
flashStart=$(date +%s.%N)
if ! "$cli" flash --port "$out/device" "$image"; then
  echo "demo: FAILED: qmload-cli flash did not succeed"
  exit 1
fi
flashEnd=$(date +%s.%N)

# Stopping the simulator makes it write its flash.
kill -TERM "$simPid"
wait "$simPid" || true
simPid=

names=(program resources header)
bad=0
for i in 0 1 2; do
  offset=$((addresses[i] - 0x08000000))
  if cmp -s <(dd if="$out/flash.bin" iflag=skip_bytes,count_bytes skip="$offset" count="${sizes[i]}" status=none) \
            <(dd if="$image" iflag=skip_bytes,count_bytes skip="${fileOffsets[i]}" count="${sizes[i]}" status=none); then
    printf 'demo: %-9s %7d bytes at 0x%08x: match\n' "${names[i]}" "${sizes[i]}" "${addresses[i]}"
  else
    printf 'demo: %-9s %7d bytes at 0x%08x: MISMATCH\n' "${names[i]}" "${sizes[i]}" "${addresses[i]}"
    bad=1
  fi
done

flashSeconds=$(awk -v a="$flashStart" -v b="$flashEnd" 'BEGIN { printf "%.2f", b - a }')
if [ "$bad" -ne 0 ]; then
  echo "demo: FAILED: the device's memory differs from the image"
  exit 1
fi
echo "demo: OK: the device holds the image; flashing took ${flashSeconds} s, the whole demo $((SECONDS - started)) s"
