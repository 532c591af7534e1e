# Completion of qvmailctl for bash: commands and options from its --help and, for root, the domains and
# addresses that exist.

# _qvmailctl_help TITLE [WORD ...] - the names in that part of a command's help
_qvmailctl_help() {
    local title=$1
    shift
    qvmailctl "$@" --help 2> /dev/null | sed -n "/^$title:/,/^\$/s/^  \\([^ ]*\\).*/\\1/p"
}

# _qvmailctl_names ARGUMENT OBJECT - the words that fit an argument as --help names it
_qvmailctl_names() {
    case $1 in
        BACKEND) printf '%s\n' files mysql ;;
        TYPE) printf '%s\n' user admin ;;
        FILE) compgen -f -- "$current" ;;
        DOMAIN | USER | ADDRESS | TARGET | MEMBER)
            [ "$EUID" -eq 0 ] || return
            case $1/$2 in
                DOMAIN/*) qvmailctl domain list ;;
                USER/*) qvmailctl mailbox list "${words[2]}" | sed 's/@.*//' ;;
                ADDRESS/list) qvmailctl list list ;;
                *) qvmailctl mailbox list ;;
            esac
            # For a new address, its domain is completed.
            [[ $current != *@* ]] || qvmailctl domain list | sed "s/^/${current%%@*}@/"
            ;;
    esac 2> /dev/null | # compgen expands its words: a name that is read back must not be a command
        grep -E '^[[:alnum:]/._+@=~-]+$'
}

_qvmailctl() {
    # Not from COMP_WORDS, because for bash "@" ends a word.
    local line=${COMP_LINE:0:COMP_POINT} before word previous='' words=() names arguments command=1
    local current=${line##*[[:blank:]]}
    read -ra before <<< "${line%"$current"}"
    for word in "${before[@]:1}"; do
        case $previous/$word in
            --quota/* | --wait/* | --config/* | */-*) ;;
            *) words+=("$word") ;;
        esac
        previous=$word
    done

    COMPREPLY=()
    case $previous in
        --quota | --wait) return ;;
        --config) mapfile -t COMPREPLY < <(compgen -d -- "$current") && return ;;
    esac
    if [[ $current == -* ]]; then
        names=$(_qvmailctl_help Options "${words[@]:0:2}" | sed 's/.*--/--/')
    elif [ ${#words[@]} -eq 0 ]; then
        names=$(_qvmailctl_help Subcommands)
    else
        names=$(_qvmailctl_help Subcommands "${words[0]}")
        [ -z "$names" ] || command=2
        if [ ${#words[@]} -ge $command ]; then
            mapfile -t arguments < <(_qvmailctl_help Positionals "${words[@]:0:command}")
            local number=$((${#words[@]} - command))
            [ $number -lt ${#arguments[@]} ] || number=$((${#arguments[@]} - 1)) # the last takes the rest
            names=
            [ $number -lt 0 ] || names=$(_qvmailctl_names "${arguments[number]}" "${words[0]}")
        fi
    fi
    mapfile -t COMPREPLY < <(compgen -W "$names" -- "$current" | sort -u)
    # bash replaces only what stands behind the "@".
    [[ $current != *@* || $COMP_WORDBREAKS != *@* ]] || COMPREPLY=("${COMPREPLY[@]#"${current%@*}@"}")
}

complete -F _qvmailctl qvmailctl
