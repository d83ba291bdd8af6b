# Bash completion for kel: commands, their options as --help tells them, filters and files.

_kel_complete() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command="" each commands
    commands=$("${COMP_WORDS[0]}" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\)  .*/\1/p' | xargs)
    COMPREPLY=()
    for each in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ " $commands " == *" $each "* ]] && command=$each && break
    done
    if [[ $word == -* ]]; then
        local options
        options=$("${COMP_WORDS[0]}" ${command:+"$command"} --help 2>/dev/null | grep -oE -- '^  (-[a-z],)?--[a-z-]+' |
            grep -oE -- '--[a-z-]+')
        mapfile -t COMPREPLY < <(compgen -W "$options --verbose" -- "$word")
    elif [[ -z $command ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$word")
    elif [[ $previous == --filter || $command == filters ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$("${COMP_WORDS[0]}" filters --names 2>/dev/null)" -- "$word"
            compgen -f -X '!*.glsl' -- "$word")
    elif [[ $previous == --audio-filter ]]; then
        mapfile -t COMPREPLY < <(compgen -W "gain lowpass highpass bandpass notch" -- "$word")
    elif [[ $previous == --align ]]; then
        mapfile -t COMPREPLY < <(compgen -W "left center right" -- "$word")
    elif [[ $previous == --type ]]; then
        mapfile -t COMPREPLY < <(compgen -W "U8 S16LE S24.8LE" -- "$word")
    fi
}

# What is not known above is a file.
complete -o default -F _kel_complete kel
