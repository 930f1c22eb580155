#!/usr/bin/env bash
# The first steps of an operator with the packages, as the documents describe them. Each must work at the first attempt.
# Runs as one user, with natctl and nat64d on the PATH. Also tries Prometheus if it is installed.
set -euo pipefail
work=$(mktemp -d)
export FWX_HOST_DIR=$work/run XDG_RUNTIME_DIR=$work/run XDG_STATE_HOME=$work/state NATCTL_CONNECT=alpha
mkdir --mode=0700 "$FWX_HOST_DIR"
cd "$work"
trap 'kill $(jobs -p) 2>/dev/null; wait; rm -r "$work"' EXIT

fail() { echo "$*" >&2; exit 1; }
step() { echo "first hour: $*"; }
expect() { # TEXT COMMAND...   the command succeeds and prints the text
  local said
  said=$("${@:2}" 2>&1) || fail "${*:2}: $said"
  [[ $said == *"$1"* ]] || fail "${*:2}: $said"
}
refuses() { # STATUS TEXT COMMAND...
  local said status=0
  said=$("${@:3}" 2>&1) || status=$?
  [[ $status == "$1" && $said == *"$2"* ]] || fail "${*:3}: status $status: $said"
}
until_true() { for ((i = 0; i < 300; ++i)); do "$@" >/dev/null 2>&1 && return; sleep 0.1; done; fail "never: $*"; }
serve() { natctl serve alpha --state "$work/alpha.state" >served 2>>serve.log & server=$!; until_true test -s served; }

step "a server, a document, and what is in force"
serve
echo 'pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.9' >edge
expect "1 item" natctl config check edge
expect "1 command to send" natctl config apply --check edge
expect "ok, 1 command" natctl config apply edge
expect "192.0.2.9" natctl pool show

step "a change that is confirmed, one that is not, and the way back"
echo 'timeout set --type udp --value 2m' >>edge
natctl config apply --confirm 1h edge >confirmed 2>asked &
until_true grep -F "config confirm" asked
expect "version 2 stays" natctl config confirm
wait $!
echo 'limit add --type sessions --value 5' >>edge
refuses 1 "was not confirmed in time" natctl config apply --confirm 1s edge
expect "no difference" natctl config diff 2
expect "ok" natctl config rollback 1
refuses 1 "timeout set --type udp" natctl config diff 2

step "nat64d keeps the document, and says so to whoever watches"
nat64d alpha --config "$work/edge" --listen 127.0.0.1:0 2>daemon.log &
daemon=$!
in_step() { [[ $(natctl --json daemon status) == *'"in_step":true'* ]]; }
until_true in_step
port=$(sed -n 's/.*event=listening port=//p' daemon.log)
page() { exec 9<>"/dev/tcp/127.0.0.1/$port"; printf 'GET %s HTTP/1.0\r\n\r\n' "$1" >&9; cat <&9; }
expect " 200 " page /healthz
expect "nat64_document_in_step 1" page /metrics
refuses 5 "nat64d (process $daemon)" natctl pool del --id 1

step "a document that is refused changes nothing"
echo 'pool add --id 2 --param 1 --start 192.0.2.5 --end 192.0.2.20' >wrong
cat edge wrong >edge.new
mv edge.new edge
refused() { [[ $(natctl --json daemon status) == *'"refused_reason":"'*'pool'* ]]; }
until_true refused
expect '"in_step":true' natctl --json daemon status
sed -i '$d' edge
until_true eval '! refused'

step "the server dies, and comes back with nothing"
kill -9 $server
wait $server || true
until_true eval '[[ $(page /healthz) == *" 503 "* ]]'
rm served alpha.state*
serve
until_true in_step
expect "192.0.2.9" natctl pool show

if command -v prometheus >/dev/null; then
  step "Prometheus watches"
  cat >prometheus.yml <<END
rule_files: [/usr/share/nat64d/alerts.yml]
scrape_configs: [{job_name: nat64, scrape_interval: 1s, static_configs: [{targets: ['127.0.0.1:$port']}]}]
END
  prometheus --config.file=prometheus.yml --storage.tsdb.path=tsdb --web.listen-address=127.0.0.1:19464 2>prometheus.log &
  asked() { port=19464 page "/api/v1/query?query=nat64_document_in_step"; }
  until_true eval '[[ $(asked) == *"\"1\"]"* ]]'
fi
step "done"
