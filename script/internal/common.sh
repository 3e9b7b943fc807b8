# shellcheck shell=bash
# Sourced by the scripts in script/: finds the project's folder, handles --help, and has routines that show output only
# if something fails.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
program=$(basename "$0")
[ "$program" = zr4410-sandbox ] || program=script/$program

# The comment at the top of a script is its help text.
show_help() {
  sed -n '2,/^set /{/^# \{0,1\}/s///p}' "$0"
  exit 0
}
case ${1:-} in
  -h | --help) show_help ;;
esac

say() { printf '%s: %s\n' "$program" "$*" >&2; }

die() {
  say "$*"
  exit 1
}

# Rejects an argument that the script does not know.
unknown() { # ARGUMENT
  die "unknown argument $1; see $program --help"
}

# Copies its input to standard output. If standard error is a terminal, shows the latest line there.
progress() {
  if [ ! -t 2 ]; then
    cat
    return
  fi
  local line
  while IFS= read -r line || [ -n "$line" ]; do
    printf '%s\n' "$line"
    printf '\r\033[K%.79s' "$line" >&2
  done
  printf '\r\033[K' >&2
}

# quiet COMMAND...: runs the command and shows its output only if it fails. On a terminal, it also shows the progress.
quiet() {
  local output status=0
  output=$("$@" 2>&1 | progress) || status=$?
  [ "$status" = 0 ] || printf '%s\n' "$output" >&2
  return "$status"
}

# build DIRECTORY [TARGET]...: builds the configured project. Announces the duration if ten or more object files are
# missing.
build() {
  local object missing=0
  while read -r object; do
    [ -e "$1/$object" ] || missing=$((missing + 1))
  done < <(ninja -C "$1" -t commands "${@:2}" 2>/dev/null | sed -n 's/.* -o \([^ ]*\.o\) .*/\1/p')
  # A file takes one core two to three seconds.
  [ "$missing" -lt 10 ] ||
    say "building ${1#"$root/"}, $missing files: about $((missing * 3 / $(nproc) + 1)) s"
  quiet cmake --build "$1" ${2:+--target "${@:2}"}
}

# run_tests DIRECTORY [CTEST-OPTION]...: runs the tests built there. If all pass, shows only ctest's summary and why
# pytest skipped any.
run_tests() {
  local log=$1/ctest.log status=0
  local jobs=$(($(nproc) + 1)) # some tests mostly wait
  ctest --test-dir "$1" --parallel "$jobs" --no-tests=error --no-label-summary --output-on-failure "${@:2}" 2>&1 |
    progress >"$log" || status=$?
  if [ "$status" = 0 ]; then
    sed -n '/% tests passed/,$p' "$log"
    sed -n 's#^SKIPPED \(\[[0-9]*\]\) [./]*#SKIPPED \1 #p' "$1/Testing/Temporary/LastTest.log" | sort -u
  else
    grep -vE '^ *Start +[0-9]+:|^ *[0-9]+/[0-9]+ Test .* Passed ' "$log"
  fi
  return "$status"
}
