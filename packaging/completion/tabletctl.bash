# bash completion for tabletctl: its commands, their options and the values it knows.
_tabletctl()
{
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local common="--json --port --timeout -v --verbose --help"
    COMPREPLY=()
    case $prev in
        --port | --timeout | --wait | --seconds | --count | --identifier | --data | --param)
            return ;;
        --format)
            COMPREPLY=($(compgen -W "auto json archive" -- "$cur"))
            return ;;
        --answer)
            COMPREPLY=($(compgen -W "auto hex u8 u16 u32 u64 i8 i16 i32 i64 bool string settings" -- "$cur"))
            return ;;
    esac
    # The command and its subcommand: the first words that are neither options nor values.
    local i command="" sub=""
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --port | --timeout | --wait | --seconds | --count | --identifier | --data | \
                --param | --format | --answer) ((i++)) ;;
            -*) ;;
            *) if [[ -z $command ]]; then command=${COMP_WORDS[i]}; elif [[ -z $sub ]]; then sub=${COMP_WORDS[i]}; fi ;;
        esac
    done
    local words
    case $command in
        "") words="count tablets version capabilities caps last-tablet touch-api sync quit listen raw ae settings --version" ;;
        count) words="--by-id" ;;
        quit) words="--wait" ;;
        listen) words="--identifier --sync --seconds --count" ;;
        raw) words="--data --answer" ;;
        ae) [[ -z $sub ]] && words="count send" || words="--param" ;;
        settings)
            if [[ -z $sub ]]; then
                words="to-archive to-json trace"
            elif [[ $cur != -* ]]; then
                COMPREPLY=($(compgen -f -- "$cur"))
                return
            else
                [[ $sub == trace ]] && words="--format"
            fi ;;
    esac
    COMPREPLY=($(compgen -W "$words $common" -- "$cur"))
}
complete -F _tabletctl tabletctl
