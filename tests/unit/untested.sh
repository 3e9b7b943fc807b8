#!/bin/sh
# Names every symbol that the shared library exports and that no test refers to. Fails if there is one.
#
#   untested.sh NM LIBRARY OBJECT...      (the objects of all tests)
set -eu
nm=$1 library=$2
shift 2
used=$("$nm" --undefined-only "$@" | sed -n 's/^ *U //p' | sort -u)
untested=$("$nm" -D --defined-only "$library" | sed -n 's/^[0-9a-f]* [A-Z] \([^_].*\)/\1/p' | grep -vxF "$used" || true)
if [ -n "$untested" ]; then
  echo "exported, but used by no test:"
  echo "$untested"
  exit 1
fi
