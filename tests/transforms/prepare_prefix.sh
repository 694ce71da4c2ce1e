#!/bin/sh
# Makes the Wine prefix with the scripted encoders, or brings it up to date: prepare_prefix.sh BIN
# (the Windows build's programs). It is VD_TRANSFORMS_PREFIX, or build/wine/transforms; programs run
# in it by cmake/run-wine-transforms.
set -eu
bin=$(cd "$1" && pwd)
here=$(CDPATH= cd "$(dirname "$0")/../.." && pwd)
prefix=${VD_TRANSFORMS_PREFIX:-$here/build/wine/transforms}
plain=$here/build/wine/prefix
run() { "$here/cmake/run-wine-transforms" "$@" </dev/null; }

# The tests' plain prefix is copied where it is ready: that takes a quarter of the time.
if [ ! -d "$prefix" ]; then
  mkdir -p "$(dirname "$prefix")"
  if [ -f "$here/build/wine/ready" ]; then
    rm -rf "$prefix.new"
    cp -a "$plain" "$prefix.new"
    mv "$prefix.new" "$prefix"
  else
    run wineboot -i
    run reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f
  fi
fi

# What is to be there; when it is, nothing has to be done.
wanted=$(cksum "$bin/register_transforms.exe" "$bin/mfplat-shim/mfplat.dll")
[ "$(cat "$prefix/transforms.ready" 2>/dev/null)" = "$wanted" ] && exit 0

system=$prefix/drive_c/windows/system32
[ -f "$system/mfplat_wine.dll" ] || mv "$system/mfplat.dll" "$system/mfplat_wine.dll"
cp "$bin/mfplat-shim/mfplat.dll" "$system/mfplat.new"
mv "$system/mfplat.new" "$system/mfplat.dll"
run reg add 'HKCU\Software\Wine\DllOverrides' /v mfplat /d native /f
run "$bin/register_transforms.exe" add "Z:$(echo "$bin" | tr / '\\')\\vd_transforms.dll.so"
echo "$wanted" >"$prefix/transforms.ready"
