#!/usr/bin/env bash
# Builds everything and drives the example configurations through the library, the host platform and the server model.
# usage: demo.sh [NATCTL]   uses that natctl instead of building one
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

natctl=${1:-build/demo/tools/natctl}
if [[ $# -eq 0 ]]; then
  need_packages "${build_packages[@]}" "${gateway_packages[@]}"
  say "building (preset demo)"
  build demo
fi

say "settings: every command, its messages and its verdict"
"$natctl" --trace batch examples/settings.natctl 2>&1

say "a complete NAT64 configuration and its statistics"
"$natctl" batch examples/nat64.natctl

say "MAP-T rules"
"$natctl" batch examples/mapt.natctl

say "sessions that the embedded server makes up, and lookups as the data plane does them"
"$natctl" batch examples/embedded.natctl

say "a file with an error in line 7: what came before stays accepted"
status=0
"$natctl" batch examples/failing.natctl || status=$?
echo "exit status $status"
[[ $status -eq 2 ]]

say "packets: an IPv6-only client, the gateway and an IPv4 server, in three network namespaces"
packets() {
  gateway=${natctl%/*}/nat64-gateway client=fwx_demo_client middle=fwx_demo_gateway server=fwx_demo_server
  export PATH=$PATH:/usr/sbin:/sbin
  [[ -x $gateway ]] || { echo "not shown: there is no $gateway"; return; }
  [[ $EUID -eq 0 ]] || { echo "not shown: only root can make network namespaces"; return; }
  [[ -e /dev/net/tun ]] || { echo "not shown: there is no /dev/net/tun"; return; }
  for place in tayga ip ping; do
    command -v $place >/dev/null || { echo "not shown: there is no program $place"; return; }
  done
  unshare --net true 2>/dev/null || { echo "not shown: this machine lets nobody make network namespaces"; return; }

  FWX_HOST_DIR=$(mktemp --directory)
  export FWX_HOST_DIR XDG_STATE_HOME=$FWX_HOST_DIR
  cleanup() {
    [[ -z ${serving:-} ]] || { kill "$serving"; wait "$serving" || true; }
    ip netns exec $middle "$gateway" --remove edge || true
    for place in $client $middle $server; do ip netns delete $place || true; done
    rm -r "$FWX_HOST_DIR"
  }
  trap cleanup EXIT
  for place in $client $middle $server; do ip netns add $place; done
  ip -n $client link add c0 type veth peer name in0 netns $middle
  ip -n $server link add s0 type veth peer name out0 netns $middle
  ip -n $client address add 2001:db8:1::2/64 dev c0 nodad
  ip -n $middle address add 2001:db8:1::1/64 dev in0 nodad
  ip -n $middle address add 198.51.100.1/24 dev out0
  ip -n $server address add 198.51.100.2/24 dev s0
  ip -n $client link set c0 up
  ip -n $middle link set in0 up
  ip -n $middle link set out0 up
  ip -n $server link set s0 up
  ip -n $client route add default via 2001:db8:1::1
  ip -n $server route add default via 198.51.100.1
  ip netns exec $middle sysctl --quiet --write net.ipv4.ip_forward=1 net.ipv6.conf.all.forwarding=1

  ip netns exec $middle "$gateway" edge >"$FWX_HOST_DIR/serving" &
  serving=$!
  until [[ -s $FWX_HOST_DIR/serving ]]; do kill -0 $serving && sleep 0.1; done
  "$natctl" --connect edge prefix add --prefix 2001:db8:64::/96 --kind stateful
  "$natctl" --connect edge pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.8
  ip netns exec $client ping -c 1 2001:db8:64::198.51.100.2
  "$natctl" --connect edge sessions walk
}
(packets)
