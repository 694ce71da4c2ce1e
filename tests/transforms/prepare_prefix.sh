#!/bin/sh
# Makes the Wine prefix with the scripted encoders, or brings it up to date: prepare_prefix.sh BIN
# (the Windows build's programs). It is VD_TRANSFORMS_PREFIX, or build/wine/transforms; programs run
# in it by cmake/run-wine-transforms.
set -eu
bin=$(cd "$1" && pwd)
here=$(CDPATH= cd "$(dirname "$0")/../.." && pwd)
prefix=${VD_TRANSFORMS_PREFIX:-$here/build/wine/transforms}
run=$here/cmake/run-wine-transforms

# The tests' plain prefix is copied where it is ready: that takes a quarter of the time.
if [ ! -d "$prefix" ]; then
  mkdir -p "$(dirname "$prefix")"
  if [ -f "$here/build/wine/ready" ]; then
    rm -rf "$prefix.new"
    cp -a "$here/build/wine/prefix" "$prefix.new"
    mv "$prefix.new" "$prefix"
  else
    "$run" wineboot -i </dev/null
    "$run" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f </dev/null
  fi
fi

# What is to be there; when it is, nothing has to be done.
wanted=$(cksum "$bin/register_transforms.exe" "$bin/mfplat-shim/mfplat.dll" \
  "$here/tests/transforms/install.sh")
[ "$(cat "$prefix/transforms.ready" 2>/dev/null)" = "$wanted" ] && exit 0
WINE=$run WINEPREFIX=$prefix "$here/tests/transforms/install.sh" "$bin" "$bin/vd_transforms.dll.so"
echo "$wanted" >"$prefix/transforms.ready"
