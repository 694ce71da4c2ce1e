#!/bin/sh
# The module loads on a Windows without the media layer, Direct3D and the shader compiler: none of
# them is among its imports. check_imports.sh MODULE
set -eu
imports=$(x86_64-w64-mingw32-objdump -p "$1" | sed -n 's/.*DLL Name: //p')
[ -n "$imports" ] || { echo "no imports to be seen in $1" >&2; exit 1; }
unwanted=$(echo "$imports" | grep -iE '^(mf.*|d3d.*|dxgi.*)\.dll$') || exit 0
printf 'The module imports:\n%s\n' "$unwanted" >&2
exit 1
