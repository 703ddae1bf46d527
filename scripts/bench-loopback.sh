# Sourced by the loopback TLS benchmarks (tls-bench.sh, slow-link.sh, round-trips.sh): a work folder with a
# throwaway authority and a certificate it signed for localhost, the background processes they start (stopped,
# and the folder removed, when the script exits), a free loopback port, and the benchmark's reply file.

work="$(mktemp -d)"
pids=()
stop_all() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  pids=()
}
trap 'stop_all; rm -rf "$work"' EXIT

"$root/scripts/localhost-certificate.sh" "$work"

free_port() { python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])'; }

# write_reply FETCH_BENCH: the reservation reply the fetch benchmark expects, in $work/reply.json, readable by
# nginx's worker (an unprivileged user when nginx is started by root).
write_reply() {
  "$1" --print-reply yes >"$work/reply.json"
  chmod 755 "$work"
  chmod 644 "$work/reply.json"
}

# write_nginx_conf CONNECTIONS < LINES: $work/nginx.conf for one nginx worker that keeps everything in $work,
# with the given lines inside its http block (the "link" log format, which counts connections and resumed TLS
# sessions, is defined for them).
write_nginx_conf() {
  mkdir -p "$work/nginx"
  {
    cat <<CONF
worker_processes 1;
pid $work/nginx.pid;
error_log $work/nginx-error.log;
events { worker_connections $1; }
http {
  client_body_temp_path $work/nginx; proxy_temp_path $work/nginx; fastcgi_temp_path $work/nginx;
  uwsgi_temp_path $work/nginx; scgi_temp_path $work/nginx;
  log_format link '\$connection \$connection_requests \$ssl_session_reused \$request_method \$uri \$status';
CONF
    cat
    echo "}"
  } >"$work/nginx.conf"
}
