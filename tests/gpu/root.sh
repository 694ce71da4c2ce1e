#!/usr/bin/env bash
# A root of the next Debian release with a newer Wine, Direct3D 11 over Vulkan, and Mesa's software
# Vulkan: there the shader compiles and NV12 textures can be written by plane, without a GPU.
#   root.sh make DIR MIRROR                  makes it, unless it is complete; half a gigabyte to fetch
#   root.sh run DIR FOLDER PROGRAM.exe...    runs a Windows program of the folder, with a screen that
#                                            nobody sees, a network of its own, and the scripted
#                                            encoders of tests/transforms, built for that Wine
#   root.sh streams DIR FOLDER PROGRAM...    runs a program of this system, outside the root but in
#                                            its network: the stand-ins' tests, whose Windows host is
#                                            the folder's, inside
# All that is mounted or started for that lives in namespaces of its own and goes with them. Wants
# root.
set -euo pipefail

suite=trixie
packages=(wine wine64 libwine dxvk mesa-vulkan-drivers libvulkan1 libgl1-mesa-dri libgl1 libglx-mesa0
  libegl1 xvfb fonts-dejavu-core
  wine64-tools libwine-dev g++ libavcodec-dev libavutil-dev)
source=$(cd "$(dirname "$0")/../.." && pwd)
in_wine=$source/tests/gpu/in_wine.sh

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

# In namespaces that end with this shell, and everything in them too. A shell's background command
# ignores Ctrl-C, and with it all that it starts, which tests of Ctrl-C can't use.
run_apart() {  # "run" or "streams", root, folder, command...
  local scratch
  scratch=$(mktemp -d)
  trap 'rm -rf "'"$scratch"'"' EXIT
  VD_SCRATCH=$scratch setpriv --pdeathsig KILL env --default-signal=INT unshare --mount --pid --net \
    --fork --kill-child --propagation private "$0" apart "$@" &
  wait $!
}

# There: the root as a system of its own, beside this one.
apart() {  # "run" or "streams", root, folder, command...
  local way=$1 display status=0
  export VD_ROOT=$2 VD_PROGRAMS=$3
  shift 3
  ip link set lo up
  mount -t proc proc /proc
  mount -t proc proc "$VD_ROOT/proc"
  mount --rbind /dev "$VD_ROOT/dev"
  mount -t sysfs -o ro sysfs "$VD_ROOT/sys"
  mount -t tmpfs tmpfs "$VD_ROOT/tmp"
  mount --bind -o ro "$source" "$VD_ROOT/veldrift/source"
  mount --bind -o ro "$VD_PROGRAMS" "$VD_ROOT/veldrift/programs"
  # By the same name on both sides.
  mkdir -p "$VD_ROOT$VD_SCRATCH"
  mount --bind "$VD_SCRATCH" "$VD_ROOT$VD_SCRATCH"
  "$in_wine" prepare
  # It says its number when it is ready.
  mkfifo "$VD_ROOT/tmp/display"
  chroot "$VD_ROOT" Xvfb -displayfd 3 -screen 0 1280x1400x24 -nolisten tcp \
    3>"$VD_ROOT/tmp/display" >"$VD_ROOT/tmp/xvfb.log" 2>&1 &
  read -r display <"$VD_ROOT/tmp/display"
  export DISPLAY=:$display
  if [ "$way" = run ]; then
    "$in_wine" "$VD_PROGRAMS/$1" "${@:2}" || status=$?
  else
    TMPDIR=$VD_SCRATCH VD_WINDOWS_RUN=$in_wine VD_WINDOWS_BIN=$VD_PROGRAMS \
      VD_WINDOWS_ADAPTER=1 "$@" || status=$?
  fi
  "$in_wine" end
  return $status
}

command=${1:-}
[ $# -eq 0 ] || shift
case $command in
  make) make_root "$@" ;;
  run | streams) run_apart "$command" "$@" ;;
  apart) apart "$@" ;;
  *) sed -n '2,13s/^# *//p' "$0" >&2; exit 2 ;;
esac
