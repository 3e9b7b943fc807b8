# Sourced by the scripts beside it: where the project is, and how to keep quiet about what went well.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

say() { printf '%s: %s\n' "script/$(basename "$0")" "$*" >&2; }

die() {
  say "$*"
  exit 1
}

# quiet COMMAND...: its output is shown only if it fails.
quiet() {
  local output status=0
  output=$("$@" 2>&1) || status=$?
  [ "$status" = 0 ] || printf '%s\n' "$output" >&2
  return "$status"
}
