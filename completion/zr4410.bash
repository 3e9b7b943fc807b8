# shellcheck shell=bash
# Completion of testZR4410 and simZR4410 in bash; needs no other package. Installed once for each of the two programs.
# While there are several choices, each is listed with its meaning; only the choice itself is inserted.

# Splits the line before the cursor as the shell does. Sets words, and word, which is completed; both are unquoted. Sets
# kept to the beginning of word that readline does not replace: what is before an open quote, or before the last
# unquoted character that separates words for readline, such as a colon.
_zr4410_split() {
  local line=${COMP_LINE:0:COMP_POINT} quote='' before_quote='' char at
  words=() word='' kept=''
  for ((at = 0; at < ${#line}; ++at)); do
    char=${line:at:1}
    if [[ -z $quote && $char == [[:blank:]] ]]; then
      [ -z "$word" ] || words+=("$word")
      word='' kept=''
    elif [[ $char == "$quote" ]]; then
      quote='' kept=$before_quote # a closed quote does not count
    elif [[ -z $quote && $char == [\"\'] ]]; then
      quote=$char before_quote=$kept kept=$word
    elif [[ $char == \\ && $quote != \' ]]; then
      word+=${line:$((++at)):1}
    else
      if [[ -z $quote && $COMP_WORDBREAKS == *"$char"* ]]; then
        kept=$word${char#@} # readline also replaces an @
      fi
      word+=$char
    fi
  done
}

# Sets COMPREPLY to the choices that begin with word, or with what follows PREFIX in it. Each line of standard input is
# a choice and, after a tab, its meaning.
_zr4410_offer() { # [PREFIX]
  local choice meaning show=1
  local -a choices=() meanings=()
  while IFS=$'\t' read -r choice meaning; do
    if [[ ${1-}$choice == "$word"* ]]; then
      choices+=("${1-}$choice")
      meanings+=("$meaning")
    fi
  done
  case $COMP_TYPE in
    37 | 42) show=0 ;; # a key that inserts each choice in turn, or all of them
  esac
  ((${#choices[@]} > 1)) || show=0
  COMPREPLY=()
  for choice in "${!choices[@]}"; do
    meaning=${meanings[choice]}
    ((show)) || meaning=
    COMPREPLY+=("${choices[choice]#"$kept"}${meaning:+  $meaning}")
  done
}

# The words of testZR4410: those before, where _ stands for any; a choice; its meaning. The tool itself is not asked,
# because each of its runs opens the queues and writes to the log. -g is not offered as the first word, because the tool
# takes the values of an option from the second and third.
_testZR4410_words='
|-s|camera module
|-m|motor microcontroller
|-c|raw VISCA command
|-i|raw VISCA inquiry
|-y|report
|-r|receive what arrives, until Ctrl-C
|-h|usage
|--sony|camera module
|--mcu|motor microcontroller
|--cmd|raw VISCA command
|--inq|raw VISCA inquiry
|--sys|report
|--read|receive what arrives, until Ctrl-C
|--help|usage
-s|0|model and ROM version
-s|1|sensor mode
-s|2|set the sensor mode
-s 0|0|model and ROM version
-s 1|0|the present one
-s 1|1|list of all
-s 2|0|unknown
-s 2|1|1080i 60fps (Default)
-s 2|2|1080i 59.94fps
-s 2|3|NTSC, Stop Digital Output
-s 2|4|1080i 50fps
-s 2|5|PAL, Stop Digital Output
-s 2|6|1080p 30fps
-s 2|7|1080p 29.97fps
-s 2|8|1080p 25fps
-s 2|9|720p 60fps
-s 2|10|720p 59.94fps
-s 2|11|NTSC, Stop Digital Output
-s 2|12|720p 50fps
-s 2|13|PAL, Stop Digital Output
-s 2|14|720p 30fps
-s 2|15|720p 29.97fps
-s 2|16|NTSC, Stop Digital Output
-s 2|17|720p 25fps
-s 2|18|PAL, Stop Digital Output
-s _ _|-g|dump every message
-m|12|power of the camera
-m|16|version
-m|17|pan, tilt and zoom
-m 12|0|off
-m 12|1|on
-m 16|0|version
-m 16|1|list of the commands
-m 17|0|once
-m 17|1|automatic response
-m _ _|-g|dump every message
-c|0002|power on
-c|0003|power off
-c _|-g|dump every message
-i|04|camera
-i|00|interface
-i|7E|blocks
-i 04|00|power
-i 04|2472|sensor mode
-i 00|02|model and ROM version
-i 7E|7E00|lens
-i 7E|7E01|exposure and white balance
-i 7E|7E02|day/night and others
-i 7E|7E03|digital zoom, noise reduction and others
-i 7E|7E04|wide dynamic range
-i _ _|-g|dump every message
-y|0|lens
-y|1|exposure and white balance
-y|2|day/night
-y|3|digital zoom, high sensitivity, gain limit and noise reduction
-y|4|wide dynamic range
-y _|-g|dump every message
-r|-g|dump every message
'

_testZR4410() {
  local word kept at choice meaning before
  local -a words
  _zr4410_split
  case ${words[1]-} in
    --sys) words[1]=-y ;;
    --sony | --mcu | --cmd | --inq | --read) words[1]=${words[1]:1:2} ;;
  esac
  before=${words[*]:1}
  _zr4410_offer < <(
    while IFS='|' read -r at choice meaning; do
      if [[ -n $choice && $before =~ ^${at//_/[^ ]+}$ && ($choice != --* || $word == --*) ]]; then
        printf '%s\t%s\n' "$choice" "$meaning"
      fi
    done <<<"$_testZR4410_words"
  )
}

# Prints the options or the subcommands of a help text, each with its meaning, which may be in the next line. The
# indentation tells an option from a line of text that begins with one.
_simZR4410_listed() { # options|subcommands
  local pattern='^ {1,12}(-h, *)?(--[a-z-]+)(.*)$' line choice=
  [ "$1" = options ] || pattern='^ ( ?)([a-z]+)(  .*)$'
  while IFS= read -r line; do
    if [[ -z $choice && $line =~ $pattern ]]; then
      choice=${BASH_REMATCH[2]} line=${BASH_REMATCH[3]}
    fi
    if [[ -n $choice && $line == *'  '[![:blank:]]* ]]; then
      line=${line#*  }
      printf '%s\t%s\n' "$choice" "${line#"${line%%[![:blank:]]*}"}"
      choice=
    fi
  done
}

# Prints the faults, or after "NAME:" the keys of a fault, from what `simZR4410 --faults` prints.
_simZR4410_faults() { # WORD
  local before='' name meaning part=faults
  if [[ $1 == *:* ]]; then
    before=${1%"${1##*[:,]}"}
  fi
  while read -r name meaning; do
    case $name in
      Faults,) ;;
      Keys:) part=keys ;;
      *)
        if [[ -z $before && $part = faults ]]; then
          printf '%s\t%s\n' "$name" "$meaning"
        elif [[ -n $before && $part = keys ]]; then
          printf '%s\t%s\n' "$before$name=" "$meaning"
        fi
        ;;
    esac
  done
}

_simZR4410() { # PROGRAM
  local word kept program=$1 option='' prefix='' each previous='' help scenario
  local -a words command=() control=()
  _zr4410_split
  [[ $program != \~/* ]] || program=$HOME${program:1}
  type -P "$program" >/dev/null || program=simZR4410
  help=$("$program" --help 2>/dev/null) || return
  for each in "${words[@]:1}"; do
    if [ "$previous" = --control ]; then
      control=(--control "$each")
    elif [[ $each == --control=* ]]; then
      control=("$each")
    elif [[ $'\n'$(_simZR4410_listed subcommands <<<"$help") == *$'\n'"$each"$'\t'* ]]; then
      command+=("$each")
      help=$("$program" "${command[@]}" --help)
    fi
    previous=$each
  done

  # What is completed: the value of an option, or an argument of a command.
  local place=${command[*]}
  case $previous in --*) option=$previous ;; esac
  if [[ $word == --*=* ]]; then
    option=${word%%=*}
    prefix=$option=
  fi
  local takes_value=$'\n +'"$option [A-Z][A-Z]" takes_text=$'\n +'"$option TEXT" values='TEXT:[{]([^}]*)[}]'
  if [[ -n $option && $help =~ $takes_value ]]; then
    place=$option
    values="$option $values"
  fi
  if [[ $place == --* || $place == 'ctl supply' ]] && [[ $help =~ $values ]]; then
    place=values
    values=${BASH_REMATCH[1]//,/$'\n'}
  fi
  [[ $place == 'ctl scenario' || $place == --* && $help =~ $takes_text ]] ||
    compopt +o default 2>/dev/null || true # bash offers files only where one may be given
  case $place in
    values) _zr4410_offer "$prefix" <<<"$values" ;;
    --fault | 'ctl fault')
      _zr4410_offer "$prefix" < <("$program" --faults | _simZR4410_faults "${word#"$prefix"}")
      compopt -o nospace 2>/dev/null || true # a colon or a value may follow
      ;;
    --scenario)
      _zr4410_offer "$prefix" < <(
        for scenario in "$(dirname "$(readlink -f "$(type -P "$program")")")"/../share/zr4410/scenarios/*.toml; do
          scenario=${scenario##*/}
          [ "$scenario" = '*.toml' ] || printf '%s\n' "${scenario%.toml}"
        done
        compgen -f -- "${word#"$prefix"}"
      )
      compopt -o filenames 2>/dev/null || true # bash quotes blanks and ends the name of a directory with a slash
      ;;
    --* | 'ctl scenario') ;; # files
    'ctl get' | 'ctl set')
      _zr4410_offer < <("$program" ctl "${control[@]}" get 2>/dev/null | while IFS='=' read -r each previous; do
        [ "$place" = 'ctl get' ] || each+='='
        printf '%s\t%s\n' "$each" "$previous"
        [[ -z $word || $each != *.* ]] || printf '%s\t%s\n' "${each#*.}" "$previous" # the short name
      done)
      [ "$place" = 'ctl get' ] || compopt -o nospace 2>/dev/null || true
      ;;
    'ctl clear') _zr4410_offer < <("$program" ctl "${control[@]}" faults 2>/dev/null | sed 's/ /\t/') ;;
    *)
      if [[ $word == -* ]]; then
        _zr4410_offer < <(_simZR4410_listed options <<<"$help")
      else
        _zr4410_offer < <(_simZR4410_listed subcommands <<<"$help")
      fi
      ;;
  esac
}

complete -F _testZR4410 testZR4410
complete -o default -F _simZR4410 simZR4410
