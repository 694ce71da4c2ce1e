#!/bin/sh
# The module exports its two names and nothing else: check_exports.sh MODULE
set -eu
wanted='vd_transmit_publish_playback_state
xTransmitEntry'
if od -An -tx1 -N2 "$1" | grep -q '4d 5a'; then
  found=$(x86_64-w64-mingw32-objdump -p "$1" | awk '/\[Ordinal\/Name Pointer\] Table/ { on = 1; next }
    on && NF == 0 { exit } on { print $NF }' | LC_ALL=C sort)
else
  found=$(nm -D --defined-only "$1" | awk '{ print $NF }' | LC_ALL=C sort)
fi
[ "$found" = "$wanted" ] && exit 0
printf 'The module exports:\n%s\nwanted:\n%s\n' "$found" "$wanted" >&2
exit 1
