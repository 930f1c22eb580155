#!/usr/bin/env bash
# Checks that systemd accepts the units, and that servers and nat64d have the same user and folder of sockets. The gateway
# must administer the network, so it does not have PrivateUsers.
# usage: unit_test.sh PACKAGING_DIR NAT64D NATCTL GATEWAY
set -euo pipefail
packaging=$1 nat64d=$2 natctl=$3 gateway=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for unit in "$packaging"/*@.service; do
  name=$(basename "$unit" @.service)
  sed "s#/usr/bin/nat64d#$nat64d#; s#/usr/bin/natctl#$natctl#; s#/usr/sbin/nat64-gateway#$gateway#" "$unit" >"$work/$name@alpha.service"
  said=$(systemd-analyze verify --man=no "$work/$name@alpha.service" 2>&1) && [[ -z $said ]] || { echo "$name: $said"; exit 1; }
  grep -E '^(User|Group|UMask|Environment=FWX_HOST_DIR|RuntimeDirectory.*|PrivateUsers)=?' "$unit" >"$work/$name.shared"
done
for shared in "$work"/*.shared; do
  case $shared in
    */nat64-gateway-translator.shared) ;; # nobody connects to it
    */nat64-gateway.shared) diff <(grep -v PrivateUsers "$work/nat64d.shared") "$shared" ;;
    *) diff "$work/nat64d.shared" "$shared" ;;
  esac
done
level=$(systemd-analyze security --offline=true "$work/nat64d@alpha.service" | sed -n 's/.*exposure level for .*: \([0-9]*\).*/\1/p')
[[ $level -le 2 ]] || { echo "exposure level $level"; exit 1; }
