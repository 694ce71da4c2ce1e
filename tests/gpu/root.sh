#!/usr/bin/env bash
# A root of the next Debian release with a newer Wine, Direct3D 11 over Vulkan, and Mesa's software
# Vulkan: there the shader compiles and NV12 textures can be written by plane, without a GPU.
#   root.sh make DIR MIRROR                  makes it, unless it is complete; half a gigabyte to fetch
#   root.sh run DIR FOLDER PROGRAM.exe...    runs a Windows program of the folder, with a screen that
#                                            nobody sees, a network of its own, and the scripted
#                                            encoders of tests/transforms, built for that Wine
# All that is mounted or started for that lives in namespaces of its own and goes with them. Wants
# root.
set -euo pipefail

suite=trixie
packages=(wine wine64 libwine dxvk mesa-vulkan-drivers libvulkan1 libgl1-mesa-dri libgl1 libglx-mesa0
  libegl1 xvfb fonts-dejavu-core
  wine64-tools libwine-dev g++ libavcodec-dev libavutil-dev)
source=$(cd "$(dirname "$0")/../.." && pwd)

# Runs a command inside, with the kernel's folders there.
inside() {  # root, command...
  unshare --mount --pid --fork --kill-child --propagation private bash -ec '
    root=$1
    shift
    mount -t proc proc "$root/proc"
    mount --rbind /dev "$root/dev"
    exec chroot "$root" "$@"' _ "$@"
}

make_root() {  # root, mirror
  local root=$1 mirror=$2 file
  [ "$(cat "$root/ready" 2>/dev/null)" != "${packages[*]}" ] || return 0
  if [ ! -e "$root/base" ]; then
    rm -rf "$root"
    mkdir -p "$root"
    unshare --mount --propagation private debootstrap --variant=minbase --include=ca-certificates \
      "$suite" "$root" "$mirror"
    touch "$root/base"
  fi
  cp /etc/resolv.conf "$root/etc/resolv.conf" 2>/dev/null || true
  # The way to the mirror is that of this machine.
  for file in /etc/apt/apt.conf.d/*; do
    if grep -qi 'acquire.*proxy' "$file"; then cp "$file" "$root/etc/apt/apt.conf.d/"; fi
  done
  printf 'path-exclude=/usr/share/%s/*\n' doc man locale >"$root/etc/dpkg/dpkg.cfg.d/small"
  inside "$root" env DEBIAN_FRONTEND=noninteractive sh -ec 'apt-get update -q
    apt-get install -qy --no-install-recommends "$@"
    apt-get clean' _ "${packages[@]}"
  mkdir -p "$root/veldrift/source" "$root/veldrift/programs"
  echo "${packages[*]}" >"$root/ready"
}

run_inside() {  # root, folder, program...
  export VD_ROOT=$1 VD_SOURCE=$source VD_PROGRAMS=$2
  shift 2
  # It dies with this shell, and everything inside with it.
  setpriv --pdeathsig KILL unshare --mount --pid --net --fork --kill-child --propagation private bash -ec '
    ip link set lo up
    mount -t proc proc "$VD_ROOT/proc"
    mount --rbind /dev "$VD_ROOT/dev"
    mount -t sysfs -o ro sysfs "$VD_ROOT/sys"
    mount -t tmpfs tmpfs "$VD_ROOT/tmp"
    mount --bind -o ro "$VD_SOURCE" "$VD_ROOT/veldrift/source"
    mount --bind -o ro "$VD_PROGRAMS" "$VD_ROOT/veldrift/programs"
    program=$1
    shift
    exec chroot "$VD_ROOT" bash /veldrift/source/tests/gpu/in_wine.sh \
      "/veldrift/programs/$program" "$@"' _ "$@" &
  wait $!
}

command=${1:-}
[ $# -eq 0 ] || shift
case $command in
  make) make_root "$@" ;;
  run) run_inside "$@" ;;
  *) sed -n '2,10s/^# *//p' "$0" >&2; exit 2 ;;
esac
