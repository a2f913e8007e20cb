# bash completion of zulstat(1)

_zulstat() {
    local commands='stats ids groups watch top ping explain check demo'
    local formats='table plain json jsonl csv openmetrics'
    local options='-h --help -H --host -p --port -T --timeout -o --output -j -I --include -X --exclude --no-header
        --lf --no-color -q --quiet -v --verbose --trace --trace-file'
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' index word
    # Readline takes --option=value for three words.
    if [[ $current == '=' ]]; then
        current=''
    elif [[ $before == '=' ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${COMP_WORDS[index]}
        case $word in
        -H | --host | -p | --port | -T | --timeout | -o | --output | -I | --include | -X | --exclude | --trace | --trace-file)
            ((++index))
            [[ ${COMP_WORDS[index]} != '=' ]] || ((++index))
            ;;
        -*) ;;
        *)
            command=$word
            break
            ;;
        esac
    done

    COMPREPLY=()
    case $before in
    -o | --output) mapfile -t COMPREPLY < <(compgen -W "$formats" -- "$current") ;;
    --trace) mapfile -t COMPREPLY < <(compgen -W '0 1 2 3 4 5' -- "$current") ;;
    -H | --host) mapfile -t COMPREPLY < <(compgen -A hostname -- "$current") ;;
    --trace-file)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        ;;
    -p | --port | -T | --timeout | -I | --include | -X | --exclude) ;;
    -g | --group | -i | --interval | -c | --count | -r | --rate | -d | --delta | -w | --warning | --critical | --header-every) ;;
    *)
        case $command in
        stats | ids) options+=' -g --group' ;;
        groups) options+=' -l --long' ;;
        watch)
            options+=' -g --group -i --interval -c --count -r --rate -d --delta --header-every --no-reconnect'
            ;;
        top) options+=' -g --group -i --interval -r --rate -d --delta --no-reconnect' ;;
        ping) options+=' -c --count -i --interval' ;;
        check) options+=' -w --warning -c --critical' ;;
        '') options+=' -V --version' ;;
        esac
        if [[ $current == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
        elif [[ -z $command ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$current")
        fi
        ;;
    esac
}
complete -F _zulstat zulstat
