#!/usr/bin/env bash
# The demo's requests over https with a host name, through a loopback link that holds every piece DELAY_MS
# each way (default 25; the TCP handshake's round trip included): wall time, connections opened and TLS
# sessions resumed, beside one curl run that sends the same requests on one connection. nginx (Debian's
# nginx-light: TLS, HTTP/2) stands in front of pms-sandbox with a certificate made here; bench/delay_proxy.py
# is the link. Loopback only; every process is bounded and stopped at the end.
#   scripts/slow-link.sh [DELAY_MS] [RUNS]        (scripts/setup.sh --bench installs nginx-light)
# With SLOW_LINK_FRESH=1, nginx speaks HTTP/1.1 and closes every connection after one request: each request
# then needs a connection, and the log shows whether the client resumed its TLS session on them.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
delay="${1:-25}"
runs="${2:-3}"
http2=http2 keepalive=1000
report=build-bench/slow-link.json
if [ "${SLOW_LINK_FRESH:-0}" = 1 ]; then http2="" keepalive=1 report=build-bench/slow-link-fresh.json; fi
say() { echo "slow-link.sh: $*" >&2; }
command -v nginx >/dev/null || { say "nginx is missing: run ./scripts/setup.sh --bench"; exit 1; }
command -v curl >/dev/null || { say "curl is missing: run ./scripts/setup.sh --bench"; exit 1; }

if [ ! -f build/CMakeCache.txt ]; then
  cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
    -DVLMSDK_BUILD_TESTS=OFF -DVLMSDK_BUILD_BENCH=OFF >/dev/null
fi
cmake --build build -j"$(nproc 2>/dev/null || echo 2)" --target vlmsdk-pms pms-sandbox >&2
tool="$root/build/tools/vlmsdk-pms/vlmsdk-pms"
sandbox_exe="$root/build/tools/pms-sandbox/pms-sandbox"

. "$root/scripts/bench-loopback.sh"

# Starts a fresh service behind nginx behind the link; sets link_port.
start_service() {
  stop_all
  : >"$work/access.log"
  "$sandbox_exe" --port 0 --in-memory --quiet --token sandbox-token >"$work/sandbox.out" 2>&1 &
  pids+=($!)
  local sandbox_port=""
  for _ in $(seq 100); do
    sandbox_port="$(sed -n 's#.*listening on http://127.0.0.1:\([0-9]*\)/.*#\1#p' "$work/sandbox.out" | head -1)"
    [ -n "$sandbox_port" ] && break
    sleep 0.05
  done
  [ -n "$sandbox_port" ] || { say "pms-sandbox did not start"; cat "$work/sandbox.out" >&2; exit 1; }
  local nginx_port
  nginx_port="$(free_port)"
  write_nginx_conf 64 <<CONF
  access_log $work/access.log link;
  upstream sandbox { server 127.0.0.1:$sandbox_port; keepalive 8; }
  server {
    listen 127.0.0.1:$nginx_port ssl $http2;
    keepalive_requests $keepalive;
    ssl_certificate $work/server.pem;
    ssl_certificate_key $work/server.key;
    ssl_session_cache shared:link:1m;
    location / {
      proxy_pass http://sandbox;
      proxy_http_version 1.1;
      proxy_set_header Connection "";
    }
  }
CONF
  nginx -p "$work" -c "$work/nginx.conf" -g 'daemon off;' &
  pids+=($!)
  python3 "$root/bench/delay_proxy.py" "$nginx_port" "$delay" --seconds 300 >"$work/link.port" &
  pids+=($!)
  for _ in $(seq 100); do
    link_port="$(head -1 "$work/link.port" 2>/dev/null || true)"
    if [ -n "$link_port" ] && curl -s -o /dev/null --cacert "$work/ca.pem" "https://localhost:$nginx_port/__ready" 2>/dev/null; then
      break
    fi
    sleep 0.05
  done
  : >"$work/access.log"
}

# "connections resumed requests" of the access log.
tally() {
  # The readiness probe may be logged late: it is not one of the requests measured.
  awk '$5 == "/__ready" { next } { if (!($1 in seen)) { seen[$1] = 1; connections++; if ($2 == 1 && $3 == "r") resumed++ } requests++ }
       END { printf "%d %d %d\n", connections, resumed + 0, requests }' "$work/access.log"
}

now() { date +%s.%N; }

say "link: $delay ms each way; $runs runs of each"
rows=()
for run in $(seq "$runs"); do
  start_service
  t0="$(now)"
  "$tool" --base-url "https://localhost:$link_port/" --token sandbox-token --ca-file "$work/ca.pem" --timeout 60 demo \
    --confirmation HLI-48213 --venue ven_harborlight --last-name Quillfeather --card card_ada_visa_4242 \
    --item itm_breakfast:2 --item itm_parking:1 >/dev/null
  t1="$(now)"
  read -r connections resumed requests < <(tally)
  grep -v " /__ready " "$work/access.log" >"$work/demo.log" || true
  rows+=("kit $(awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.3f", b - a }') $connections $resumed $requests")
  say "kit demo, run $run: $(awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.3f", b - a }') s, $requests requests, $connections connections, $resumed resumed"

  # The same requests, in order, from one curl run on one connection.
  start_service
  args=()
  first=1
  while read -r _ _ _ method uri _; do
    [ $first -eq 1 ] || args+=(--next)
    first=0
    args+=(-s -o /dev/null --http2 --cacert "$work/ca.pem" -H "Authorization: Bearer sandbox-token"
           -H "Content-Type: application/json" -X "$method")
    case "$method $uri" in
      "POST /guest/reservations") args+=(-d '{"confirmation_id":"HLI-48213","venue_id":"ven_harborlight","last_name":"Quillfeather"}') ;;
      "POST "*/charge) args+=(-d '{"deliverable_items":[{"item_id":"itm_breakfast","quantity":2},{"item_id":"itm_parking","quantity":1}]}') ;;
      "POST "*/transactions) args+=(-d '{"credit_card_id":"card_ada_visa_4242","amount":1,"currency":"USD"}') ;;
      "PATCH "*/mobile_checkin|"PATCH "*/mobile_checkout) args+=(-d '{}') ;;
      PATCH*) args+=(-d '{"notify_me":true}') ;;
    esac
    args+=("https://localhost:$link_port$uri")
  done <"$work/demo.log"
  t0="$(now)"
  curl "${args[@]}" || true
  t1="$(now)"
  read -r connections resumed requests < <(tally)
  rows+=("curl $(awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.3f", b - a }') $connections $resumed $requests")
  say "curl --next, run $run: $(awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.3f", b - a }') s, $requests requests, $connections connections"
done
stop_all

mkdir -p build-bench
python3 - "$delay" "${rows[@]}" >"$report" <<'PY'
import json, statistics, sys
delay = float(sys.argv[1])
runs = {"kit": [], "curl": []}
for row in sys.argv[2:]:
    who, seconds, connections, resumed, requests = row.split()
    runs[who].append({"seconds": float(seconds), "connections": int(connections), "resumed": int(resumed),
                      "requests": int(requests)})
median = {who: statistics.median(r["seconds"] for r in rows) for who, rows in runs.items()}
print(json.dumps({"delay_ms_each_way": delay, "runs": runs, "median_seconds": median,
                  "kit_over_curl": median["kit"] / median["curl"]}, indent=2))
PY
python3 -c 'import json, sys; d = json.load(open(sys.argv[1])); print("median: kit %.3f s, curl %.3f s, kit/curl %.2f" % (d["median_seconds"]["kit"], d["median_seconds"]["curl"], d["kit_over_curl"]))' "$report"
