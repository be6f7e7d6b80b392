# bash completion for tidewick(1): commands, options, agents, and the short
# identifiers of the sessions holding a request (asked of the running
# application). Installed as share/bash-completion/completions/tidewick.

_tidewick_held() {
    tidewick pending --json 2>/dev/null | sed -n 's/.*"shortId": *"\([^"]*\)".*/\1/p'
}

_tidewick_sessions() {
    tidewick sessions --json 2>/dev/null | sed -n 's/.*"shortId": *"\([^"]*\)".*/\1/p'
}

_tidewick_settings() {
    tidewick settings --json 2>/dev/null | sed -n 's/.*"name": *"\([^"]*\)".*/\1/p'
}

_tidewick() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local commands="app status connect disconnect sessions pending allow answer deny reply end let-stop transcript handoff usage demo service pause resume gate safe settings forget"
    local agents="claude codex cursor antigravity"
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W "$commands --help --version" -- "$cur")
        return
    fi
    case $prev in
    --agent)
        mapfile -t COMPREPLY < <(compgen -W "$agents" -- "$cur")
        return
        ;;
    -m | --message | --tail | --for) return ;;
    -o | --output)
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
        return
        ;;
    esac
    local words="--help"
    case ${COMP_WORDS[1]} in
    app) words+=" --headless --no-color" ;;
    status | sessions | pending) words+=" --json" ;;
    usage) words+=" --json" ;;
    connect) words+=" --gate-commands --yes $agents" ;;
    disconnect) words+=" --yes $agents" ;;
    allow) words+=" --agent --always $(_tidewick_held)" ;;
    let-stop) words+=" --agent $(_tidewick_held)" ;;
    answer) ((COMP_CWORD == 2)) && words+=" --agent $(_tidewick_held)" ;;
    deny) words+=" --agent --message $(_tidewick_held)" ;;
    reply) ((COMP_CWORD == 2)) && words+=" --agent $(_tidewick_sessions)" ;;
    end) words+=" --agent $(_tidewick_sessions)" ;;
    transcript) words+=" --agent --json --tail $(_tidewick_sessions)" ;;
    handoff) words+=" --agent --output $(_tidewick_sessions)" ;;
    service) ((COMP_CWORD == 2)) && words+=" install uninstall status" ;;
    pause) words+=" --for" ;;
    gate)
        ((COMP_CWORD == 2)) && words+=" cursor antigravity"
        ((COMP_CWORD == 3)) && words+=" on off"
        ;;
    safe) ((COMP_CWORD == 2)) && words+=" add remove list" ;;
    settings)
        ((COMP_CWORD == 2)) && words+=" --json set"
        ((COMP_CWORD == 3)) && [[ $prev == set ]] && words+=" $(_tidewick_settings)"
        ;;
    forget) words+=" --agent --all $(_tidewick_sessions)" ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
}

complete -F _tidewick tidewick
