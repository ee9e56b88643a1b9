# Sourced by the flashing benchmarks: the 208 KiB sample image and its wire floor.
# Needs $cli (qmload-cli), $work and $root. Sets simBaud, fastBaud, writeMs, blocks,
# requests and floor (the flash proper, in seconds), and writes $work/bench.alf:
# a random 200 KiB program at 0x08004000, 8 KiB of resources and the header block.
simBaud=115200
writeMs=1
fastBaud=921600
program=$((200 * 1024))
resources=$((8 * 1024))
cat >"$work/bench.map" <<MAP
.text           0x08004000      0x$(printf %x $program)
                0x08004000      __entryPoint__
                0x08004101      loop
                0x08004200      ModbusHGroups_Table
                0x08004240      ModbusIGroups_Table
                0x08004280      ModbusRemoteRegTables
                0x$(printf %08x $((0x08004000 + program)))      _etext
.bss            0x20000000      0x100
MAP
head -c $((0x4000 + program)) /dev/urandom >"$work/flash.o"
head -c "$resources" /dev/urandom >"$work/res.bin"
"$cli" build-aelf --map "$work/bench.map" --cfg "$root/examples/test.cpp_CFG.bin" --object "$work/flash.o" \
  --res "$work/res.bin" -o "$work/bench.alf" >/dev/null
blocks=$(((program + 255) / 256 + (resources + 255) / 256 + 1))
requests=$((2 * blocks + 2)) # check-block and write-block per block, start, finish
# Every frame's bytes both ways (identify and start at the device's own rate, the
# rest at 921600) plus the device's write time per block.
floor=$(awk -v blocks="$blocks" -v sb="$simBaud" -v fb="$fastBaud" -v w="$writeMs" 'BEGIN {
  printf "%.4f", 48 * 10 / sb + blocks * ((24 + 24 + 280 + 24) * 10 / fb + w / 1000) + 48 * 10 / fb }')
