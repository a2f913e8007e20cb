# bash completion of zulstat(1)

_zulstat_takes_value() {
    case $1 in
    -H | --host | -p | --port | -T | --timeout | -o | --output | -I | --include | -X | --exclude | --map | --module | \
        --trace | --trace-file | -g | --group | --from | --at | -i | --interval | -r | --rate | -d | --delta | -c | \
        --count | --header-every | --to | --speed | --rotate | --keep | -w | --warning | --critical | --expect | \
        --observe) return 0 ;;
    esac
    return 1
}

# Words of a kind, of the Gateways that the line names; readline takes host:port and @name for several words.
_zulstat_known() {
    local line gateway=() index command=''
    read -ra line <<<"${COMP_LINE-}"
    [[ ${COMP_LINE-} == *[[:blank:]] ]] || unset 'line[-1]'  # not complete yet
    for ((index = 1; index < ${#line[@]}; ++index)); do
        case ${line[index]} in
        -H | --host | -p | --port) gateway+=("${line[index]}" "${line[++index]-}") ;;
        --host=* | --port=*) gateway+=("${line[index]}") ;;
        -*) ! _zulstat_takes_value "${line[index]}" || ((++index)) ;;
        @*) [[ -n $command ]] || gateway+=("${line[index]}") ;;
        *) command=1 ;;
        esac
    done
    zulstat "${gateway[@]}" complete "$1" 2>/dev/null
}

_zulstat() {
    local commands='stats ids groups watch record top plot diff report ping explain check map config complete demo'
    local options='-h --help -H --host -p --port -T --timeout -o --output -j -I --include -X --exclude --map --module
        --no-header --lf --no-color -q --quiet -v --verbose --trace --trace-file'
    local before_commands='-V --version'
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' index word names
    # Readline takes --option=value for three words.
    if [[ $current == '=' ]]; then
        current=''
    elif [[ $before == '=' ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    # The '@' of a name is a word here, and a part of the word that is completed.
    if [[ $before == '@' ]]; then
        current=@$current before=''
    fi
    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${COMP_WORDS[index]}
        if [[ $word == '@' ]]; then
            ((++index))
        elif [[ $word == @* ]]; then
            continue
        elif [[ $word != -* ]]; then
            command=$word
            break
        elif _zulstat_takes_value "$word"; then
            ((++index))
            [[ ${COMP_WORDS[index]} != '=' ]] || ((++index))
            # host:port
            while [[ ${COMP_WORDS[index + 1]-} == :* ]]; do
                ((index += 2))
            done
        fi
    done

    COMPREPLY=()
    case $command:$before in
    report:-o | report:--output)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    esac
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
    --map | --trace-file | --from)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        ;;
    -g | --group)
        mapfile -t COMPREPLY < <(compgen -W "$(_zulstat_known groups)" -- "$current")
        ;;
    *)
        ! _zulstat_takes_value "$before" || return 0
        case $command in
        stats) options+=' -g --group --from --at' ;;
        ids) options+=' -g --group' ;;
        groups) options+=' -l --long' ;;
        watch) options+=' -g --group -i --interval -r --rate -d --delta --no-reconnect -c --count --header-every
            --wide --from --at --to --speed' ;;
        record) options+=' -g --group -i --interval -c --count --rotate --keep' ;;
        top) options+=' -g --group -i --interval -r --rate -d --delta --no-reconnect --from --at --to --speed
            --raw' ;;
        plot) options+=' -g --group -i --interval -c --count -r --rate --from --at --to' ;;
        diff) options+=' -g --group --from --at --to' ;;
        report) options+=' -g --group -o --output --at --to' ;;
        ping) options+=' -c --count -i --interval' ;;
        check) options+=' -w --warning -c --critical --expect --rate --delta -i --interval --from --at' ;;
        map) options+=' --observe' ;;
        demo) options+=' --web' ;;
        '') options+=" $before_commands" ;;
        esac
        if [[ $current == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
        elif [[ -z $command && $current != @* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$current")
        elif [[ $before == "$command" && ' record diff report ' == *" $command "* ]]; then
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
        elif [[ -z $command || ' stats watch record top plot check ' == *" $command "* ]]; then
            if [[ -z $command ]]; then
                names=$(_zulstat_known targets)
            elif [[ $current == @* ]]; then
                names=$(_zulstat_known selections)
            else
                names=$(_zulstat_known ids)
            fi
            mapfile -t COMPREPLY < <(compgen -W "$names" -- "$current")
        fi
        ;;
    esac
}
complete -F _zulstat zulstat
