# shellcheck shell=bash
# Sourced by the scripts of script/: the project's folder, the option --help, and routines that show output only if
# something fails.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

# The comment at the top of a script is its help text.
case ${1:-} in
  -h | --help)
    sed -n '2,/^set /{/^# \{0,1\}/s///p}' "$0"
    exit 0
    ;;
esac

say() { printf '%s: %s\n' "script/$(basename "$0")" "$*" >&2; }

die() {
  say "$*"
  exit 1
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

# quiet COMMAND...: runs the command and shows its output only if it fails. A terminal shows the progress.
quiet() {
  local output status=0
  output=$("$@" 2>&1 | progress) || status=$?
  [ "$status" = 0 ] || printf '%s\n' "$output" >&2
  return "$status"
}

# build DIRECTORY [TARGET]...: builds what is configured there. Announces the duration if ten or more files are missing.
build() {
  local object missing=0
  while read -r object; do
    [ -e "$1/$object" ] || missing=$((missing + 1))
  done < <(ninja -C "$1" -t commands "${@:2}" | sed -n 's/.* -o \([^ ]*\.o\) .*/\1/p')
  # A file takes one core two to three seconds.
  [ "$missing" -lt 10 ] ||
    say "building ${1#"$root/"}, $missing files: about $((missing * 3 / $(nproc) + 1)) s"
  quiet cmake --build "$1" ${2:+--target "${@:2}"}
}

# run_tests DIRECTORY [CTEST-OPTION]...: runs the tests built there. If all pass, shows only ctest's summary.
run_tests() {
  local log=$1/ctest.log status=0
  ctest --test-dir "$1" --parallel "$(nproc)" --no-tests=error --output-on-failure "${@:2}" 2>&1 | progress >"$log" ||
    status=$?
  if [ "$status" = 0 ]; then
    sed -n '/% tests passed/,$p' "$log"
  else
    grep -vE '^ *Start +[0-9]+:|^ *[0-9]+/[0-9]+ Test .* Passed ' "$log"
  fi
  return "$status"
}
