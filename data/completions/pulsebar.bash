# bash completion for pulsebar
_pulsebar()
{
    local cur prev
    cur="${COMP_WORDS[COMP_CWORD]}"
    prev="${COMP_WORDS[COMP_CWORD-1]}"
    local clients="claude-desktop claude-code cursor vscode windsurf lm-studio gemini-cli codex"
    case "$prev" in
        --agents) COMPREPLY=($(compgen -W "status add remove" -- "$cur")); return ;;
        add|remove) COMPREPLY=($(compgen -W "$clients" -- "$cur")); return ;;
        --dump) COMPREPLY=($(compgen -d -- "$cur")); return ;;
        -M) return ;;
    esac
    if [[ " ${COMP_WORDS[*]} " == *" --network-quality "* ]]; then
        COMPREPLY=($(compgen -W "-c -M" -- "$cur"))
        return
    fi
    COMPREPLY=($(compgen -W "--mcp --agents --dump --network-quality --version --help" -- "$cur"))
}
complete -F _pulsebar pulsebar
