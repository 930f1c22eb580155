#!/usr/bin/env bash
# systemd takes the units, and server and daemon have what they must share: the user, the folder of sockets.
# usage: unit_test.sh PACKAGING_DIR NAT64D NATCTL
set -euo pipefail
packaging=$1 nat64d=$2 natctl=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for unit in "$packaging"/*@.service; do
  name=$(basename "$unit" @.service)
  sed "s#/usr/bin/nat64d#$nat64d#; s#/usr/bin/natctl#$natctl#" "$unit" >"$work/$name@alpha.service"
  said=$(systemd-analyze verify --man=no "$work/$name@alpha.service" 2>&1) && [[ -z $said ]] || { echo "$name: $said"; exit 1; }
  grep -E '^(User|Group|UMask|Environment=FWX_HOST_DIR|RuntimeDirectory.*|PrivateUsers)=?' "$unit" >"$work/$name.shared"
done
for shared in "$work"/*.shared; do
  diff "$work/nat64d.shared" "$shared"
done
level=$(systemd-analyze security --offline=true "$work/nat64d@alpha.service" | sed -n 's/.*exposure level for .*: \([0-9]*\).*/\1/p')
[[ $level -le 2 ]] || { echo "exposure level $level"; exit 1; }
