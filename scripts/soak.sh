#!/usr/bin/env bash
# A long session: the demo host on the simulated runtime with its look-around (or the session it is given)
# for MINUTES minutes (default 60), sampled once a minute: the process's resident and peak memory, threads,
# open files, and from the demo's statistics file the frames drawn, the frame time and the GL objects the
# viewer holds. Memory and GL objects should stay flat once the first batches have come in; the table and a
# CSV ($build/soak/soak.csv) show whether they do. The session is ended with an interrupt, as a user's
# Ctrl+C would end it, and must end cleanly.
#
#     bash scripts/soak.sh [MINUTES] [demo options...]
set -euo pipefail
cd "$(dirname "$0")/.."

minutes=${1:-60}
if [ $# -gt 0 ]; then shift; fi
case "$minutes" in '' | *[!0-9]*)
    echo "soak.sh: MINUTES is a whole number" >&2
    exit 2
    ;;
esac

bash scripts/setup.sh
build=${ORVEL_BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" --parallel "$(nproc)" --target orvel_demo

out="$build/soak"
rm -rf "$out"
mkdir -p "$out"
stats="$out/stats.json"
csv="$out/soak.csv"

demo=("$PWD/$build/examples/orvel_demo" --runtime simulated --frames 2000000000 --stats "$stats"
      --stats-every 20 --screenshot "$out/last.png" "$@")
if [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; then
    bash -c 'echo $$ >"$0"; exec "$@"' "$out/pid" "${demo[@]}" >"$out/demo.log" 2>&1 &
else
    xvfb-run -a -s "-noreset -screen 0 1920x1080x24" bash -c 'echo $$ >"$0"; exec "$@"' "$out/pid" \
        "${demo[@]}" >"$out/demo.log" 2>&1 &
fi
runner=$!
for _ in $(seq 50); do [ -s "$out/pid" ] && break; sleep 0.1; done
pid=$(cat "$out/pid")

# One figure of the statistics file, or nothing before it is first written.
figure() {
    python3 - "$stats" "$1" <<'EOF' 2>/dev/null || true
import json, sys
value = json.load(open(sys.argv[1]))
for key in sys.argv[2].split("."):
    value = value[key]
print(value)
EOF
}

kilobytes() { awk -v key="$1:" '$1 == key { print $2 }' "/proc/$pid/status"; }

echo "minute,rss_mb,peak_mb,threads,files,frames,frame_p95_ms,gl_objects" >"$csv"
printf "%6s %9s %9s %8s %6s %10s %12s %10s\n" minute rss_mb peak_mb threads files frames frame_p95_ms gl_objects
start=$(date +%s)
for minute in $(seq 0 "$minutes"); do
    if [ "$minute" -gt 0 ]; then
        sleep $((start + 60 * minute - $(date +%s)))
    fi
    if ! kill -0 "$pid" 2>/dev/null; then
        echo "soak.sh: the demo ended on its own after $minute minutes; its output:" >&2
        cat "$out/demo.log" >&2
        exit 1
    fi
    row=("$minute" "$(($(kilobytes VmRSS) / 1024))" "$(($(kilobytes VmHWM) / 1024))" "$(kilobytes Threads)"
         "$(find "/proc/$pid/fd" -mindepth 1 2>/dev/null | wc -l)" "$(figure frames)" "$(figure frame_ms.p95)"
         "$(figure gl_objects)")
    (IFS=,; echo "${row[*]}") >>"$csv"
    printf "%6s %9s %9s %8s %6s %10s %12s %10s\n" "${row[@]}"
done

kill -INT "$pid"
status=0
wait "$runner" || status=$?
tail -n 3 "$out/demo.log"
if [ "$status" -ne 0 ]; then
    echo "soak.sh: the demo ended with exit code $status after the interrupt" >&2
    exit "$status"
fi

# After warm-up (the first third, at most five minutes) resident memory and GL objects should not rise.
python3 - "$csv" <<'EOF'
import csv, sys
rows = list(csv.DictReader(open(sys.argv[1])))
warm = min(5, len(rows) // 3)
after = rows[warm:]
if len(after) < 2:
    sys.exit(0)
hours = (int(after[-1]["minute"]) - int(after[0]["minute"])) / 60.0
rss = [int(r["rss_mb"]) for r in after]
objects = [int(r["gl_objects"]) for r in after if r["gl_objects"]]
# A rate over a few minutes says nothing of an hour.
rate = f" ({(rss[-1] - rss[0]) / hours:+.1f} MB an hour)" if hours >= 1 / 6 else ""
print(f"after minute {after[0]['minute']}: resident {rss[0]} MB -> {rss[-1]} MB{rate}, "
      f"range {min(rss)}..{max(rss)} MB; "
      f"GL objects {min(objects) if objects else '-'}..{max(objects) if objects else '-'}")
EOF
