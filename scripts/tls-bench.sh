#!/usr/bin/env bash
# The fetch benchmark on the path a production service takes: https:// with a host name. nginx (Debian's
# nginx-light) serves the benchmark's reply on https://localhost:PORT with a certificate made here (HTTP/1.1
# with keep-alive, or HTTP/2 with TLS_BENCH_HTTP2=1); clients (b) libcurl + parse + hand map and (c) the kit
# with its defaults, at 1 and 8 in flight. Loopback only; nginx is stopped at the end.
#   scripts/tls-bench.sh [RUNS] [DURATION]     (scripts/setup.sh --bench installs nginx-light)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
runs="${1:-5}"
duration="${2:-2}"
http2=""
report=build-bench/tls-bench.json
if [ "${TLS_BENCH_HTTP2:-0}" = 1 ]; then http2=http2 report=build-bench/tls-bench-http2.json; fi
say() { echo "tls-bench.sh: $*" >&2; }
command -v nginx >/dev/null || { say "nginx is missing: run ./scripts/setup.sh --bench"; exit 1; }

dir=build-bench
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DVLMSDK_BUILD_TESTS=OFF \
  -DVLMSDK_BUILD_TOOLS=OFF >/dev/null
cmake --build "$dir" -j"$(nproc 2>/dev/null || echo 2)" --target vlmsdk-bench-fetch >&2
bench="$dir/bench/vlmsdk-bench-fetch"

. "$root/scripts/bench-loopback.sh"
write_reply "$bench"
port="$(free_port)"
write_nginx_conf 256 <<CONF
  access_log off;
  keepalive_requests 1000000;
  server {
    listen 127.0.0.1:$port ssl $http2;
    ssl_certificate $work/server.pem;
    ssl_certificate_key $work/server.key;
    root $work;
    location /guest/reservations/ { default_type application/json; try_files /reply.json =404; }
  }
CONF
nginx -p "$work" -c "$work/nginx.conf" -g 'daemon off;' &
pids+=($!)
ready=""
for _ in $(seq 100); do
  ready="$(curl -s -o /dev/null -w '%{http_code}' --cacert "$work/ca.pem" "https://localhost:$port/guest/reservations/x" 2>/dev/null || true)"
  [ "$ready" = 200 ] && break
  sleep 0.05
done
[ "$ready" = 200 ] || { say "nginx does not serve the reply (HTTP $ready)"; cat "$work/nginx-error.log" >&2; exit 1; }
mkdir -p build-bench
"$bench" --base-url "https://localhost:$port/" --ca-file "$work/ca.pem" --clients bc --runs "$runs" \
  --duration "$duration" --json "$report"
say "figures in $report"
