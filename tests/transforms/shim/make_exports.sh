#!/bin/sh
# The shim's definition file: make_exports.sh BUILTIN OBJDUMP NAMES... says that the shim has every
# export of the builtin, and that those not named are in mfplat_wine.dll.
set -eu
builtin=$1
objdump=$2
shift 2
exports=$("$objdump" -p "$builtin" | awk '/Ordinal\/Name Pointer/ { on = 1; next } on && /^$/ { exit } on { print $NF }')
[ -n "$exports" ] || { echo "make_exports.sh: $builtin has no exports" >&2; exit 1; }
echo 'LIBRARY "mfplat.dll"'
echo EXPORTS
for name in $exports; do
  case " $* " in
    *" $name "*) echo "  $name" ;;
    *) echo "  $name = mfplat_wine.$name" ;;
  esac
done
