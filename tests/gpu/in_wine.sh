#!/usr/bin/env bash
# A Windows program inside the root that root.sh makes, with Direct3D 11 by DXVK on software Vulkan:
#   in_wine.sh prepare         brings the Wine prefix and the scripted encoders up to date
#   in_wine.sh PROGRAM.exe...  runs it; with VD_WITHOUT_DIRECT3D there is no Direct3D 11
#   in_wine.sh end             ends what Wine has started for itself
# VD_ROOT says where the root is; started there, this goes inside, where the programs of VD_PROGRAMS
# have another folder.
set -euo pipefail
if [ -n "${VD_ROOT:-}" ]; then
  exec env -u VD_ROOT chroot "$VD_ROOT" bash /veldrift/source/tests/gpu/in_wine.sh \
    "${1/#"$VD_PROGRAMS/"//veldrift/programs/}" "${@:2}"
fi

direct3d="d3d11,dxgi,d3d10core=n"
[ -z "${VD_WITHOUT_DIRECT3D:-}" ] || direct3d="d3d11=;dxgi,d3d10core=n"
export HOME=/var/lib/veldrift-test WINEARCH=win64 WINEDEBUG=${WINEDEBUG:--all}
export WINEPREFIX=$HOME/prefix LC_ALL=C.UTF-8 TZ=UTC
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe,winedbg.exe=d;$direct3d"
# With it this Wine dies at its start.
unset TMPDIR
export LIBGL_ALWAYS_SOFTWARE=1 DXVK_LOG_LEVEL=${DXVK_LOG_LEVEL:-none}

make_prefix() {
  mkdir -p "$HOME"
  [ ! -e "$HOME/ready" ] || return 0
  rm -rf "$WINEPREFIX"
  wineboot -i >"$HOME/boot.log" 2>&1
  wineserver -w
  # The distribution gives them names by which Wine doesn't find them.
  local library
  for library in d3d11 dxgi d3d10core; do
    cp --remove-destination "/usr/lib/dxvk/wine64/$library.dll.so" \
      "$WINEPREFIX/drive_c/windows/system32/$library.dll"
  done
  touch "$HOME/ready"
}

# The scripted encoders, as this Wine wants them.
make_transforms() {
  local transforms=/veldrift/source/tests/transforms programs=/veldrift/programs wanted
  wanted=$(cat "$transforms"/{module,common}/* "$transforms"/*.sh "$programs/register_transforms.exe" \
    "$programs/mfplat-shim/mfplat.dll" | cksum)
  [ "$(cat "$HOME/transforms.ready" 2>/dev/null)" != "$wanted" ] || return 0
  { "$transforms/build_module.sh" "$HOME" &&
    "$transforms/install.sh" "$programs" "$HOME/vd_transforms.dll.so"; } >"$HOME/transforms.log" 2>&1 ||
    { tail -n 20 "$HOME/transforms.log" >&2; exit 1; }
  echo "$wanted" >"$HOME/transforms.ready"
}

case $1 in
  prepare)
    make_prefix
    make_transforms ;;
  end) wineserver -k || true ;;
  *)
    # On a drive that has the files of both sides.
    cd "$HOME"
    exec wine "$@" ;;
esac
