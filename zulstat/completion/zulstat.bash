# bash completion of zulstat(1)

_zulstat_takes_value() {
    case $1 in
    -H | --host | -p | --port | -T | --timeout | -o | --output | -I | --include | -X | --exclude | --map | --module | \
        --trace | --trace-file | -g | --group | -i | --interval | -r | --rate | -d | --delta | -c | --count | \
        --header-every | -w | --warning | --critical | --expect | --observe) return 0 ;;
    esac
    return 1
}

_zulstat() {
    local commands='stats ids groups watch top ping explain check map config demo'
    local options='-h --help -H --host -p --port -T --timeout -o --output -j -I --include -X --exclude --map --module
        --no-header --lf --no-color -q --quiet -v --verbose --trace --trace-file'
    local before_commands='-V --version'
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' index word
    # Readline takes --option=value for three words.
    if [[ $current == '=' ]]; then
        current=''
    elif [[ $before == '=' ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${COMP_WORDS[index]}
        if [[ $word != -* ]]; then
            command=$word
            break
        elif _zulstat_takes_value "$word"; then
            ((++index))
            [[ ${COMP_WORDS[index]} != '=' ]] || ((++index))
        fi
    done

    COMPREPLY=()
    case $before in
    -o | --output)
        mapfile -t COMPREPLY < <(compgen -W 'table plain json jsonl csv openmetrics' -- "$current")
        ;;
    --trace)
        mapfile -t COMPREPLY < <(compgen -W '0 1 2 3 4 5' -- "$current")
        ;;
    -H | --host)
        mapfile -t COMPREPLY < <(compgen -A hostname -- "$current")
        ;;
    --map | --trace-file)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        ;;
    *)
        ! _zulstat_takes_value "$before" || return 0
        case $command in
        stats) options+=' -g --group' ;;
        ids) options+=' -g --group' ;;
        groups) options+=' -l --long' ;;
        watch) options+=' -g --group -i --interval -r --rate -d --delta --no-reconnect -c --count --header-every' ;;
        top) options+=' -g --group -i --interval -r --rate -d --delta --no-reconnect --raw' ;;
        ping) options+=' -c --count -i --interval' ;;
        check) options+=' -w --warning -c --critical --expect --rate --delta -i --interval' ;;
        map) options+=' --observe' ;;
        demo) options+=' --web' ;;
        '') options+=" $before_commands" ;;
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
