# Completion of velm_agent's commands, options and arguments.

_velm_agent_options() {
    velm_agent "$@" --help 2>/dev/null | grep -o -- '--[a-z-]*' | sort -u
}

_velm_agent() {
    local word=$2 former=$3 command=${COMP_WORDS[1]}
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W "run status blocks unblock query replay check-credential script --help --version" -- "$word")
        return
    fi
    case $former in
        --config | --passphrase-file | --policy | --events | --settings) mapfile -t COMPREPLY < <(compgen -f -- "$word"); return ;;
        --out | --dir) mapfile -t COMPREPLY < <(compgen -d -- "$word"); return ;;
        --type) mapfile -t COMPREPLY < <(compgen -W "PEM P12" -- "$word"); return ;;
        --kind) mapfile -t COMPREPLY < <(compgen -W "packet payload" -- "$word"); return ;;
    esac
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_velm_agent_options "$command")" -- "$word")
        return
    fi
    case $command in
        replay | script | check-credential) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
        unblock)
            mapfile -t COMPREPLY < <(compgen -W "$(velm_agent blocks 2>/dev/null | cut -d' ' -f1)" -- "$word")
            ;;
    esac
}

complete -o filenames -F _velm_agent velm_agent
