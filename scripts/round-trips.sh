#!/usr/bin/env bash
# Round trips to the first reply on a phone's link: nginx (Debian's nginx-light) serves the benchmark's reply on
# https://localhost with a certificate made here, behind bench/delay_proxy.py holding every piece DELAY_MS each
# way (and a connection's first piece one more round trip, the TCP handshake's). Each sample is a process of
# its own (build-bench/bench/vlmsdk-bench-first-fetch): the kit with its defaults, fresh and pre-warmed, and
# (b) on one libcurl handle; the first fetch, one on the kept connection, and one after the service closed the
# idle connection. nginx's log counts connections and resumed TLS sessions. Loopback only; every process is
# bounded and stopped at the end.
#   scripts/round-trips.sh [DELAY_MS] [RUNS]      (scripts/setup.sh --bench installs nginx-light)
# nginx speaks TLS 1.3 (and 1.2), as a production service does; ROUND_TRIPS_TLS12=1 holds it to TLS 1.2, where a
# resumed session saves a round trip. ROUND_TRIPS_HTTP2=1 lets it offer HTTP/2.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
delay="${1:-50}"
runs="${2:-5}"
http2=""
protocols="TLSv1.2 TLSv1.3"
report=build-bench/round-trips
if [ "${ROUND_TRIPS_TLS12:-0}" = 1 ]; then protocols=TLSv1.2 report=$report-tls12; fi
if [ "${ROUND_TRIPS_HTTP2:-0}" = 1 ]; then http2=http2 report=$report-http2; fi
report=$report.json
say() { echo "round-trips.sh: $*" >&2; }
command -v nginx >/dev/null || { say "nginx is missing: run ./scripts/setup.sh --bench"; exit 1; }
command -v curl >/dev/null || { say "curl is missing: run ./scripts/setup.sh --bench"; exit 1; }

dir=build-bench
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DVLMSDK_BUILD_TESTS=OFF \
  -DVLMSDK_BUILD_TOOLS=OFF >/dev/null
cmake --build "$dir" -j"$(nproc 2>/dev/null || echo 2)" --target vlmsdk-bench-fetch vlmsdk-bench-first-fetch >&2
bench="$dir/bench/vlmsdk-bench-first-fetch"

. "$root/scripts/bench-loopback.sh"
write_reply "$dir/bench/vlmsdk-bench-fetch"
port="$(free_port)"
# An idle connection is closed after 1 s: the samples' last fetch, 1.5 s later, needs a new one.
write_nginx_conf 64 <<CONF
  access_log $work/access.log link;
  keepalive_timeout 1s;
  server {
    listen 127.0.0.1:$port ssl $http2;
    ssl_protocols $protocols;
    ssl_certificate $work/server.pem;
    ssl_certificate_key $work/server.key;
    ssl_session_cache shared:link:1m;
    root $work;
    location /guest/reservations/ { default_type application/json; try_files /reply.json =404; }
  }
CONF
nginx -p "$work" -c "$work/nginx.conf" -g 'daemon off;' &
pids+=($!)
python3 "$root/bench/delay_proxy.py" "$port" "$delay" --seconds 600 >"$work/link.port" &
pids+=($!)
link_port=""
ready=""
for _ in $(seq 100); do
  link_port="$(head -1 "$work/link.port" 2>/dev/null || true)"
  ready="$(curl -s -o /dev/null -w '%{http_code}' --cacert "$work/ca.pem" "https://localhost:$port/guest/reservations/x" 2>/dev/null || true)"
  [ -n "$link_port" ] && [ "$ready" = 200 ] && break
  sleep 0.05
done
[ -n "$link_port" ] && [ "$ready" = 200 ] || { say "nginx or the link did not start"; cat "$work/nginx-error.log" >&2; exit 1; }

# Where a fresh connection's time goes: curl's own phases (TCP connected, TLS done, first reply byte) and the
# TLS version it agreed.
phases="$(curl -s -o /dev/null --cacert "$work/ca.pem" -w '%{time_connect} %{time_appconnect} %{time_starttransfer}' \
  "https://localhost:$link_port/guest/reservations/x")"
tls="$(curl -s -v -o /dev/null --cacert "$work/ca.pem" "https://localhost:$port/guest/reservations/x" 2>&1 |
  sed -n 's/^\* SSL connection using \([^ ]*\).*/\1/p' | head -1)"
say "curl on a fresh connection ($tls): connected, TLS done, first byte at $phases s"
say "link: $delay ms each way (a round trip: $((2 * ${delay%.*})) ms); $runs runs of each"
samples="$work/samples"
: >"$samples"
for run in $(seq "$runs"); do
  for args in "--client kit --idle-ms 1500" "--client kit --prewarm yes --warm-up-ms 1000" "--client b --idle-ms 1500"; do
    : >"$work/access.log"
    # shellcheck disable=SC2086
    line="$("$bench" --base-url "https://localhost:$link_port/" --ca-file "$work/ca.pem" $args)"
    sleep 0.2  # nginx writes its log line once the connection's request ended
    connections="$(awk '$5 != "/guest/reservations/x" { print $1 }' "$work/access.log" | sort -u | wc -l)"
    resumed="$(awk '$2 == 1 && $3 == "r"' "$work/access.log" | wc -l)"
    echo "$line $connections $resumed" >>"$samples"
    say "run $run $args: $line, $connections connection(s), $resumed resumed"
  done
done
stop_all

mkdir -p build-bench
python3 - "$delay" "$samples" >"$report" <<'PY'
import json, statistics, sys
delay = float(sys.argv[1])
rtt = 2 * delay
rows = {}
for text in open(sys.argv[2]):
    sample, connections, resumed = text.rsplit(" ", 2)
    sample = json.loads(sample)
    name = "kit, pre-warmed" if sample["prewarmed"] else ("kit" if sample["client"] == "kit" else "(b) libcurl easy handle")
    sample["connections"], sample["resumed"] = int(connections), int(resumed)
    rows.setdefault(name, []).append(sample)
summary = {}
for name, samples in rows.items():
    summary[name] = {}
    for key in ("first_ms", "kept_ms", "after_idle_ms"):
        values = [s[key] for s in samples if key in s]
        if values:
            median = statistics.median(values)
            summary[name][key] = {"median": round(median, 1), "round_trips": round(median / rtt, 2)}
    summary[name]["connections"] = [s["connections"] for s in samples]
    summary[name]["resumed"] = [s["resumed"] for s in samples]
print(json.dumps({"delay_ms_each_way": delay, "round_trip_ms": rtt, "summary": summary, "samples": rows}, indent=2))
PY
python3 - "$report" <<'PY'
import json, sys
d = json.load(open(sys.argv[1]))
for name, s in d["summary"].items():
    parts = ["%s %.1f ms = %.2f RTT" % (k[:-3], v["median"], v["round_trips"]) for k, v in s.items() if k.endswith("_ms")]
    print("%-24s %s; connections %s, resumed %s" % (name, ", ".join(parts), s["connections"], s["resumed"]))
PY
say "figures in $report"
