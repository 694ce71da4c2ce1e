#!/usr/bin/env bash
# Inside the root that root.sh makes: a Windows program, with Direct3D 11 by DXVK on software Vulkan.
set -euo pipefail
export HOME=/var/lib/veldrift-test WINEARCH=win64 WINEDEBUG=${WINEDEBUG:--all}
export WINEPREFIX=$HOME/prefix LC_ALL=C.UTF-8 TZ=UTC
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe,winedbg.exe=d;d3d11,dxgi,d3d10core=n"
export LIBGL_ALWAYS_SOFTWARE=1 DXVK_LOG_LEVEL=${DXVK_LOG_LEVEL:-none}
mkdir -p "$HOME"
if [ ! -e "$HOME/ready" ]; then
  rm -rf "$WINEPREFIX"
  wineboot -i >"$HOME/boot.log" 2>&1
  wineserver -w
  # The distribution gives them names by which Wine doesn't find them.
  for library in d3d11 dxgi d3d10core; do
    cp --remove-destination "/usr/lib/dxvk/wine64/$library.dll.so" \
      "$WINEPREFIX/drive_c/windows/system32/$library.dll"
  done
  touch "$HOME/ready"
fi

# The scripted encoders, as this Wine wants them.
transforms=/veldrift/source/tests/transforms
programs=/veldrift/programs
wanted=$(cat "$transforms"/{module,common}/* "$transforms"/*.sh "$programs/register_transforms.exe" \
  "$programs/mfplat-shim/mfplat.dll" | cksum)
if [ "$(cat "$HOME/transforms.ready" 2>/dev/null)" != "$wanted" ]; then
  { "$transforms/build_module.sh" "$HOME" &&
    "$transforms/install.sh" "$programs" "$HOME/vd_transforms.dll.so"; } >"$HOME/transforms.log" 2>&1 ||
    { tail -n 20 "$HOME/transforms.log" >&2; exit 1; }
  echo "$wanted" >"$HOME/transforms.ready"
fi

cd "$HOME"
# It says its number when it is ready.
mkfifo /tmp/display
Xvfb -displayfd 3 -screen 0 1280x1400x24 -nolisten tcp 3>/tmp/display >/tmp/xvfb.log 2>&1 &
read -r display </tmp/display
export DISPLAY=:$display
status=0
wine "$@" || status=$?
wineserver -k || true
exit $status
