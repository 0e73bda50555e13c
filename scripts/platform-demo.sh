#!/usr/bin/env bash
# The platform at work: zqrouter on a free port with examples/zqrouter.ini,
# the quote service and its client talking through it, the router's own
# figures as zqctl reads them, then a clean stop.
# Arguments: the build tree and the source tree.
set -euo pipefail
build=$1
root=$2
dir="$build/demo-router"
mkdir -p "$dir"
rm -f "$dir/stdout"

# The router runs in its data directory, where its log goes too.
(cd "$dir" && exec "$build/router/zqrouter" --config "$root/examples/zqrouter.ini" --port 0 \
  --data-dir "$dir" >"$dir/stdout") &
router=$!
service=
cleanup() {
  [[ -n "$service" ]] && kill "$service" 2>/dev/null || true
  kill "$router" 2>/dev/null || true
}
trap cleanup EXIT

for _ in $(seq 200); do
  grep -q ' listening on ' "$dir/stdout" 2>/dev/null && break
  sleep 0.05
done
line=$(grep ' listening on ' "$dir/stdout") || { echo "zqrouter did not start" >&2; exit 1; }
echo "$line"
port=${line##*:}

"$build/examples/quote_service" "$port" &
service=$!
"$build/examples/quote_client" "$port"
wait "$service"
service=
echo "zqctl stat router --class Router (the router's own figures):"
"$build/tools/zqctl" stat router --class Router --router "127.0.0.1:$port"
kill -TERM "$router"
wait "$router" && echo "zqrouter: stopped cleanly; its log is $dir/zqrouter.log"
trap - EXIT
