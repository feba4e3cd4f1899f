# fish completion for orvelle: words, options, and the devices and applications that are there.

# Uids of the devices whose line of properties has the tag, each with its name.
function __orvelle_devices --argument-names tag
    orvelle list 2>/dev/null | awk -v tag=$tag '
        /^    uid: / { uid = substr($0, 10); next }
        /^    (out|in):/ { if ($0 ~ tag) print uid "\t" name; next }
        { name = $0; sub(/^[^[:alnum:]]*/, "", name) }'
end

function __orvelle_applications
    orvelle apps 2>/dev/null | string replace -rf '^♪ (.*)  \(pid (\d+)\).*' '$2\t$1'
end

function __orvelle_has --argument-names word
    set -l words (commandline -opc)
    test "$words[2]" = $word
end

function __orvelle_stands_at --argument-names word place
    set -l words (commandline -opc)
    test "$words[2]" = $word -a (count $words) -eq $place
end

complete -c orvelle -f
complete -c orvelle -n __fish_use_subcommand -a gui -d 'Start the menu-bar application'
complete -c orvelle -n __fish_use_subcommand -a list -d 'List all audio devices'
complete -c orvelle -n __fish_use_subcommand -a watch -d 'Say when the default output changes'
complete -c orvelle -n __fish_use_subcommand -a rate -d 'Show or set the sample rate of a device'
complete -c orvelle -n __fish_use_subcommand -a boost -d 'Boost one output until Ctrl-C'
complete -c orvelle -n __fish_use_subcommand -a auto -d 'Boost the best output until Ctrl-C'
complete -c orvelle -n __fish_use_subcommand -a apps -d 'List the applications that are playing'
complete -c orvelle -n __fish_use_subcommand -a appvol -d 'Give one application its own volume'

complete -c orvelle -n '__orvelle_stands_at rate 2' -a '(__orvelle_devices .)'
complete -c orvelle -n '__orvelle_stands_at rate 3' -a '44100 48000'

for word in boost auto
    complete -c orvelle -n "__orvelle_has $word" -l input -x -a '(__orvelle_devices loopback)' \
        -d 'Loopback device'
    complete -c orvelle -n "__orvelle_has $word" -l gain -x -d 'Gain as a linear factor'
end
for word in boost appvol
    complete -c orvelle -n "__orvelle_has $word" -l output -x -a '(__orvelle_devices out)' \
        -d 'Output'
end
complete -c orvelle -n '__orvelle_has appvol' -l pid -x -a '(__orvelle_applications)' \
    -d 'Playing application'
complete -c orvelle -n '__orvelle_has appvol' -l vol -x -d 'Volume as a linear factor, 0 to 3'
