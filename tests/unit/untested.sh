#!/bin/sh
# Prints every symbol that the shared library exports and no test refers to. Fails if there is one.
#
#   untested.sh NM LIBRARY OBJECT...      (the objects of all tests)
set -eu
nm=$1 library=$2
shift 2
used=$("$nm" --undefined-only "$@" | sed -n 's/^ *U //p' | sort -u)
exported=$("$nm" -D --defined-only "$library" | sed -n 's/^[0-9a-f]* [B-Z] \([^@]*\).*/\1/p')
[ -n "$exported" ] || { echo "$library exports nothing"; exit 1; }
untested=$(printf '%s\n' "$exported" | grep -vxF "$used" || true)
if [ -n "$untested" ]; then
  echo "exported, but no test uses it; CONTRIBUTING.md says which test to add:"
  echo "$untested"
  exit 1
fi
