# bash completion for orvelle: words, options, and the devices and applications that are there.

# _orvelle_devices program tag: uids of the devices whose line of properties has the tag.
_orvelle_devices() {
  "$1" list 2>/dev/null | awk -v tag="$2" '
    /^    uid: / { uid = substr($0, 10) }
    /^    (out|in):/ && $0 ~ tag { print uid }'
}

_orvelle_applications() {
  "$1" apps 2>/dev/null | sed -n 's/^♪ .*(pid \([0-9]*\)).*/\1/p'
}

# _orvelle_options option...: those that are not on the command line yet.
_orvelle_options() {
  local option
  for option in "$@"; do
    if [[ " ${COMP_WORDS[*]} " != *" $option "* ]]; then
      echo "$option"
    fi
  done
}

# _orvelle_choices program word-before: everything that may stand at the cursor, one a line.
_orvelle_choices() {
  if [[ $COMP_CWORD -eq 1 ]]; then
    printf '%s\n' gui list watch rate boost auto apps appvol
    return
  fi
  case ${COMP_WORDS[1]}:$2 in
    boost:--input | auto:--input) _orvelle_devices "$1" loopback ;;
    boost:--output | appvol:--output) _orvelle_devices "$1" out ;;
    appvol:--pid) _orvelle_applications "$1" ;;
    *:--gain | *:--vol) ;;
    rate:rate) _orvelle_devices "$1" . ;;
    rate:*) [[ $COMP_CWORD -eq 3 ]] && printf '%s\n' 44100 48000 ;;
    boost:*) _orvelle_options --input --output --gain ;;
    auto:*) _orvelle_options --gain --input ;;
    appvol:*) _orvelle_options --pid --vol --output ;;
  esac
}

_orvelle() {
  local choice
  COMPREPLY=()
  while IFS= read -r choice; do
    if [[ $choice == "$2"* ]]; then
      COMPREPLY+=("$(printf %q "$choice")")
    fi
  done < <(_orvelle_choices "$1" "$3")
}

complete -F _orvelle orvelle
