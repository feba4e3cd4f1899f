#!/usr/bin/env bash
# CompletionTest.bash <completion> <orvelle>: what bash offers at a cursor. Would catch a completion
# that no longer understands what "list" and "apps" print, or that offers what a command does not
# take.
source "$1"
program=$2
export ORVELLE_BACKEND=simulated
failures=0

# offers <words before the cursor> <word at the cursor> <choices>
offers() {
  local -a COMPREPLY before
  read -ra before <<<"$1"
  COMP_WORDS=(orvelle "${before[@]}" "$2")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  _orvelle "$program" "$2" "${COMP_WORDS[COMP_CWORD - 1]}"
  if [ "${COMPREPLY[*]}" != "$3" ]; then
    echo "orvelle $1 [$2]: \"${COMPREPLY[*]}\" in place of \"$3\""
    failures=$((failures + 1))
  fi
}

offers "" "" "gui list watch rate boost auto apps appvol"
offers "" "app" "apps appvol"
offers "list" "" ""
offers "boost" "" "--input --output --gain"
offers "boost --gain" "" ""
offers "boost --gain 2" "--" "--input --output"
offers "boost --input" "" "Demonstration_Headset OrvelleAudioDevice_UID"
offers "auto --input" "Orv" "OrvelleAudioDevice_UID"
offers "auto --gain 2 --input x" "" ""
offers "appvol --pid" "" "1000"
offers "appvol --output" "Demonstration_H" "Demonstration_Headset Demonstration_Headphones"
offers "rate" "Demonstration_D" "Demonstration_Display"
offers "rate Demonstration_Display" "" "44100 48000"
offers "rate Demonstration_Display 44100" "" ""
exit "$failures"
