#!/usr/bin/env bash
# Two machines made of network namespaces with a link between them whose rate and queue can be set:
# the desk, where the host runs, and the phone. Runs links.py on the desk.
#   in_namespaces.sh BIN_FOLDER OUT_FOLDER [options of links.py]
# Exits 77 where that isn't permitted or possible, with the reason.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

skip() { echo "skipped: $*"; exit 77; }

if [ "${1:-}" != --inside ]; then
  unshare --net true 2>/dev/null || skip "this user may not make network namespaces"
  command -v ip >/dev/null && command -v tc >/dev/null || skip "ip and tc (iproute2) aren't installed"
  exec unshare --net "$0" --inside "$@"
fi
shift

unshare --net sleep infinity &
phone=$!
trap 'kill $phone' EXIT
while [ "$(readlink /proc/$phone/ns/net)" = "$(readlink /proc/self/ns/net)" ]; do :; done

ip link add desk0 type veth peer name phone0 netns $phone 2>/dev/null ||
  skip "this system has no veth pairs"
# What the link carries is counted in datagrams, not in pieces of several that a card would cut.
ip link set desk0 gso_max_segs 1 2>/dev/null || true
ip address add 10.77.0.1/24 dev desk0
nsenter --net=/proc/$phone/ns/net ip address add 10.77.0.2/24 dev phone0
ip link set lo up
ip link set desk0 up
nsenter --net=/proc/$phone/ns/net ip link set lo up
nsenter --net=/proc/$phone/ns/net ip link set phone0 up
tc qdisc replace dev desk0 root tbf rate 100mbit burst 16kb limit 64kb 2>/dev/null ||
  skip "this kernel has no token bucket filter (sch_tbf)"

VD_PHONE_NET=/proc/$phone/ns/net /usr/bin/python3 "$here/links.py" "$@"
