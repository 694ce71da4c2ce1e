#!/usr/bin/env bash
# Two machines made of network namespaces, with a wire of their own between them that touches no
# other network: the desk, where programs advertise, and the phone, where network_test.py looks.
#   in_namespaces.sh BIN_FOLDER test|figures
# Exits 77 where that isn't permitted or possible, with the reason.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

skip() { echo "skipped: $*"; exit 77; }

if [ "${1:-}" != --inside ]; then
  unshare --net --uts true 2>/dev/null || skip "this user may not make network namespaces"
  command -v ip >/dev/null || skip "ip (iproute2) isn't installed"
  /usr/bin/python3 -c 'import zeroconf' 2>/dev/null || skip "python3-zeroconf isn't installed"
  exec unshare --net --uts "$0" --inside "$@"
fi
shift

hostname Desk-PC
unshare --net sleep infinity &
phone=$!
trap 'kill $phone' EXIT
on_phone() { nsenter --net="/proc/$phone/ns/net" "$@"; }
while [ "$(readlink /proc/$phone/ns/net)" = "$(readlink /proc/self/ns/net)" ]; do :; done

ip link add desk0 type veth peer name phone0 netns $phone 2>/dev/null ||
  skip "this system has no veth pairs"
ip address add 10.77.0.1/24 dev desk0
on_phone ip address add 10.77.0.2/24 dev phone0
ip link set lo up
ip link set desk0 up
on_phone ip link set lo up
on_phone ip link set phone0 up

VD_DESK=/proc/$$/ns/net VD_BIN=$1 on_phone /usr/bin/python3 "$here/network_test.py" "$2"
