#!/usr/bin/env bash
# scan-figures.sh BUILD_BIN_DIR LINES [RUNS] [LOG]: the whole-scan figures of the Performance
# table for one log size: lines per second, wall time, peak memory of the whole process (max
# RSS) and the size of every table written, with the load average at each run.
#
#   LINES  data lines of the W3C log (tools/gen-w3c-log.py --lines LINES --seed 1); the log is
#          generated once into LOG (default /tmp/w3c-LINES.log) and kept for later runs.
#   RUNS   scans of the same log (default 3); each run's line is printed, then the medians.
#
# "scan RSS" is scanbench's own peak at the closed database; "max RSS" is the whole process's
# (`/usr/bin/time -v`), the table checks after the scan included.
# Each run is `scanbench --log LOG --check --keep` under `/usr/bin/time -v`; the kept
# application folder is measured and removed at once (a 10,000,000-line run leaves about 1 GB
# of tables and a 2.4 GB copy of the log).
set -euo pipefail
bin=$(cd "$1" && pwd); lines=$2; runs=${3:-3}; log=${4:-/tmp/w3c-$lines.log}
here=$(cd "$(dirname "$0")" && pwd)
out=$(mktemp -d); trap 'rm -rf "$out" ${kept:+"$kept"}' EXIT

if [[ ! -s $log ]]; then
  echo "generating $lines lines into $log ..." >&2
  python3 "$here/gen-w3c-log.py" --lines "$lines" --seed 1 > "$log"
fi

printf '%-4s %10s %9s %9s %8s %8s %9s %9s %9s  %s\n' run lines 'lines/s' 'CPU l/s' 'scan s' \
  'wall s' 'scan RSS' 'max RSS' 'tables MB' 'load (1 min) / checks'
for ((i = 1; i <= runs; i++)); do
  load=$(cut -d' ' -f1 /proc/loadavg)
  /usr/bin/time -v "$bin/scanbench" --log "$log" --check --keep > "$out/run.txt" 2> "$out/time.txt"
  kept=$(sed -n 's/^kept: *//p' "$out/run.txt")
  nlines=$(sed -n 's/^lines: *//p' "$out/run.txt")
  lps=$(sed -n 's/^lines\/s: *\([0-9]*\) wall.*/\1/p' "$out/run.txt")
  cpu=$(sed -n 's/^lines\/s: .* wall, \([0-9]*\) CPU.*/\1/p' "$out/run.txt")
  scanrss=$(sed -n 's/^peak RSS: *\([0-9.]*\) MB.*/\1/p' "$out/run.txt")
  scan=$(sed -n 's/^seconds: *\([0-9.]*\) wall.*/\1/p' "$out/run.txt")
  wall=$(sed -n 's/.*Elapsed (wall clock) time (h:mm:ss or m:ss): //p' "$out/time.txt" |
         awk -F: '{ s = 0; for (k = 1; k <= NF; k++) s = s * 60 + $k; print s }')
  rss=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$out/time.txt")
  tables=$(du -sb "$kept/Data" | cut -f1)
  checks=$(grep -c ' ok$' "$out/run.txt" || true); bad=$(grep -c DEFECTS "$out/run.txt" || true)
  printf '%-4s %10s %9s %9s %8s %8s %8s %9.1f %9.1f  %s / %s ok, %s defective\n' "$i" "$nlines" \
    "$lps" "$cpu" "$scan" "$wall" "$scanrss" "$(echo "$rss / 1024" | bc -l)" "$(echo "$tables / 1000000" | bc -l)" \
    "$load" "$checks" "$bad"
  echo "$lps $scan $rss $cpu $scanrss" >> "$out/all.txt"
  if [[ $i -eq $runs ]]; then
    echo "tables of the last run (bytes):"
    (cd "$kept/Data" && ls -l | awk 'NR > 1 { printf "  %-16s %12d\n", $9, $5 }')
  fi
  rm -rf "$kept"; kept=
done

# Medians (the middle run of RUNS, by each figure on its own).
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
echo "median: $(cut -d' ' -f1 "$out/all.txt" | median) lines/s," \
     "$(cut -d' ' -f2 "$out/all.txt" | median) s scan," \
     "$(cut -d' ' -f4 "$out/all.txt" | median) lines/s of CPU time," \
     "$(cut -d' ' -f5 "$out/all.txt" | median) MB RSS at the scan's end," \
     "$(echo "$(cut -d' ' -f3 "$out/all.txt" | median) / 1024" | bc) MB max RSS (checks included)"
