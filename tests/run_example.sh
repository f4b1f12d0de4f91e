#!/usr/bin/env bash
# Run the example program against a virtual reader on a free loopback port.
set -euo pipefail
uhfsim=$1 example=$2
out=$(mktemp -d)
trap 'kill $sim 2>/dev/null || true; rm -rf "$out"' EXIT
"$uhfsim" --tcp 127.0.0.1:0 --random-tags 4 --seed 3 > "$out/sim" 2>&1 &
sim=$!
for _ in $(seq 50); do grep -q '^tcp ' "$out/sim" && break; sleep 0.1; done
port=$(sed -n 's/^tcp 127.0.0.1:\([0-9]*\)$/\1/p' "$out/sim")
"$example" 127.0.0.1 "$port" | tee "$out/ex"
grep -q '^EPC ' "$out/ex"
