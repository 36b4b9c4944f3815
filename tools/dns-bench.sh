#!/usr/bin/env bash
# dns-bench.sh BUILD_BIN_DIR [LOG] [ROUNDS]: reverse-DNS figures of tydbcreate-cli against a
# dnsmasq that this script starts on 127.0.0.1 (no packet leaves the machine).
#
#   1. LOG (default /tmp/w3c-1m.log, one W3C site): DNS off against DNS on with every address
#      already known from the previous run's visitor table (ROUNDS runs each, default 3, taken in
#      turn so that both see the same load; the median run of each is shown).
#   2. A generated log of 20,000 distinct addresses (two hits each), none known before: DNS on,
#      lookups per second and lines per second; then against a second server with no names at
#      all, which answers "no such name" at once (how fast the scan goes when the server is not
#      the limit); DNS off on the same log for comparison.
set -euo pipefail
bin=$(cd "$1" && pwd); log=${2:-/tmp/w3c-1m.log}; rounds=${3:-3}
work=$(mktemp -d); chmod 755 "$work"
trap 'kill ${dns_pid:-} ${empty_pid:-} 2>/dev/null; rm -rf "$work"' EXIT

port=$(python3 -c 'import socket;s=socket.socket(socket.AF_INET,socket.SOCK_DGRAM);s.bind(("127.0.0.1",0));print(s.getsockname()[1])')

# Names for every address of LOG (the c-ip column found from its #Fields line) and of the
# generated log's 10.60.x.y addresses.
python3 - "$log" "$work" <<'EOF'
import sys, os
log, work = sys.argv[1], sys.argv[2]
addresses, col = set(), None
with open(log, errors="replace") as f:
    for line in f:
        if line.startswith("#Fields:"):
            col = line.split()[1:].index("c-ip")
        elif not line.startswith("#") and col is not None:
            parts = line.split()
            if len(parts) > col: addresses.add(parts[col])
gen = ["10.60.%d.%d" % (i // 250, i % 250 + 1) for i in range(20000)]
with open(os.path.join(work, "hosts"), "w") as h:
    for a in sorted(addresses) + gen:
        h.write("%s host-%s.bench.example.net\n" % (a, a.replace(".", "-")))
os.makedirs(os.path.join(work, "gen"))
with open(os.path.join(work, "gen", "ex261101.log"), "w") as g:
    g.write("#Fields: date time c-ip cs-method cs-uri-stem sc-status cs(User-Agent)\r\n")
    for i, a in enumerate(gen):
        for hit in (0, 1):
            s = i // 5 + hit * 60
            g.write("2026-11-01 %02d:%02d:%02d %s GET /p%d.htm 200 Mozilla/4.0\r\n"
                    % (s // 3600, s // 60 % 60, s % 60, a, hit))
print("addresses in %s: %d" % (log, len(addresses)))
EOF
chmod 644 "$work/hosts"

/usr/sbin/dnsmasq --keep-in-foreground --port="$port" --listen-address=127.0.0.1 --bind-interfaces \
  --no-resolv --no-hosts --local=/in-addr.arpa/ --addn-hosts="$work/hosts" --pid-file= \
  --cache-size=0 2>/dev/null &
dns_pid=$!
: > "$work/empty"; chmod 644 "$work/empty"
empty_port=$(python3 -c 'import socket;s=socket.socket(socket.AF_INET,socket.SOCK_DGRAM);s.bind(("127.0.0.1",0));print(s.getsockname()[1])')
/usr/sbin/dnsmasq --keep-in-foreground --port="$empty_port" --listen-address=127.0.0.1 \
  --bind-interfaces --no-resolv --no-hosts --local=/in-addr.arpa/ --addn-hosts="$work/empty" \
  --pid-file= --cache-size=0 2>/dev/null &
empty_pid=$!
sleep 1

# app FOLDER: one site reading FOLDER/*.log
make_app() {
  mkdir -p "$work/$1/Data" "$work/$1/logs"
  printf 'REVERSEDNS=False\r\nINACTIVITYMINS=10\r\n\r\n' > "$work/$1/SETTINGS.INI"
  printf '[Bench]\r\nTYPE=0\r\nFOLDER=%s/\r\nMASK=*.log\r\n\r\n' "$work/$1/logs" > "$work/$1/TALLYO.INI"
}
# run APP ARGS...: one scan; prints "lines/s seconds requests cacheHits failures"
run() {
  local app=$1; shift
  TALLYO_REGISTRY=/nonexistent "$bin/tydbcreate-cli" --yes --json "$@" "$work/$app/" |
    python3 -c 'import json,sys; j=json.load(sys.stdin); print(j["linesPerSecond"], "%.3f" % j["seconds"], j["dnsRequests"], j["dnsCacheHits"], j["dnsFailures"])'
}
median() { sort -n | awk '{a[NR]=$0} END {print a[int((NR+1)/2)]}'; }

make_app big; ln -s "$log" "$work/big/logs/big.log"
echo "== $log: DNS off, no previous visitor table"
run big --no-dns
echo "== $log: DNS on, first run (every address looked up)"
run big --dns --dns-server "127.0.0.1:$port"
echo "== $log: median of $rounds, lines/s seconds requests cache-hits failures"
off=""; on=""
for r in $(seq "$rounds"); do
  off+="$(run big --no-dns)"$'\n'
  on+="$(run big --dns --dns-server "127.0.0.1:$port")"$'\n'
done
echo "DNS off (names known):          $(printf '%s' "$off" | median)"
echo "DNS on, every address cached:   $(printf '%s' "$on" | median)"

make_app gen; ln -s "$work/gen/ex261101.log" "$work/gen/logs/gen.log"
echo "== 20,000 distinct addresses, 40,000 lines"
for r in $(seq "$rounds"); do
  rm -f "$work/gen/Data/"*.DBF "$work/gen/Data/"*.MDX
  echo "DNS on, none cached:  $(run gen --dns --dns-server "127.0.0.1:$port")"
done
for r in $(seq "$rounds"); do
  rm -f "$work/gen/Data/"*.DBF "$work/gen/Data/"*.MDX
  echo "DNS on, no names:     $(run gen --dns --dns-server "127.0.0.1:$empty_port")"
done
rm -f "$work/gen/Data/"*.DBF "$work/gen/Data/"*.MDX
echo "DNS off:              $(run gen --no-dns)"
