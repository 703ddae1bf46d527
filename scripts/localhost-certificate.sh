#!/usr/bin/env bash
# A throwaway authority and a certificate it signed for localhost, for loopback TLS in the benchmarks:
# writes ca.pem, server.pem and server.key into DIR, valid for one day.
#   scripts/localhost-certificate.sh DIR
set -euo pipefail
dir="${1:?usage: $0 DIR}"
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$dir/ca.key" -out "$dir/ca.pem" -days 1 \
  -subj "/CN=loopback bench CA" 2>/dev/null
openssl req -newkey rsa:2048 -nodes -keyout "$dir/server.key" -out "$dir/server.csr" -subj "/CN=localhost" 2>/dev/null
printf 'subjectAltName=DNS:localhost\n' >"$dir/san.ext"
openssl x509 -req -in "$dir/server.csr" -CA "$dir/ca.pem" -CAkey "$dir/ca.key" -CAcreateserial \
  -out "$dir/server.pem" -days 1 -extfile "$dir/san.ext" 2>/dev/null
