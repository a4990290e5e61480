#!/usr/bin/env bash
# Makes a self-signed certificate and its key for serving HTTPS on this machine: DIR/cert.pem
# (CN 127.0.0.1, names 127.0.0.1 and localhost, valid a year) and DIR/key.pem (mode 0600), in DIR
# (mode 0700). A pair that is there and valid for another day is kept. Clients trust it with
# `curl --cacert DIR/cert.pem`.
# Usage: scripts/tls-pair.sh DIR
set -euo pipefail
dir=${1:?usage: tls-pair.sh DIR}
umask 077
mkdir -p "$dir"
chmod 0700 "$dir"
if openssl x509 -in "$dir/cert.pem" -noout -checkend 86400 >/dev/null 2>&1 && [ -s "$dir/key.pem" ]; then
  exit 0
fi
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 365 \
  -subj "/CN=127.0.0.1" -addext "subjectAltName=IP:127.0.0.1,DNS:localhost" \
  -keyout "$dir/key.pem" -out "$dir/cert.pem" 2>/dev/null
chmod 0600 "$dir/key.pem"
chmod 0644 "$dir/cert.pem"
echo "tls-pair: made $dir/cert.pem and $dir/key.pem"
