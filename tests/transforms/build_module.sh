#!/bin/sh
# Builds the module without CMake, for a system that has nothing but Wine's tools, g++ and the
# packages of libavcodec: build_module.sh FOLDER leaves vd_transforms.dll.so in it.
set -eu
here=$(CDPATH= cd "$(dirname "$0")" && pwd)
out=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
flags=$(cat "$here/module/flags")
find "$here/module" "$here/common" -name '*.cpp' | xargs -P 4 -I{} sh -c '
  object=$1/$(basename "$2" .cpp).o
  shift 2
  wineg++ "$@" -o "$object"' _ "$work" {} $flags -I "$here/../.." -c {}
wineg++ -m64 -shared -o "$out/vd_transforms.dll" "$here/module/vd_transforms.spec" "$work"/*.o \
  -lole32 -lavcodec -lavutil
