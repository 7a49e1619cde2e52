# shellcheck shell=bash
# SPDX-License-Identifier: MIT
#
# Bash completion of kestrova: commands, their options, files and folders. Names of boot variables
# are not fetched: that takes root, and mounts a file system.
#
# Uses bash alone, so that it works where the package bash-completion is not there.

# Commands of a group, or the first words.
_kestrova_commands() {
    case $1 in
        '') echo drive fetch fetch-all help production run serial shell syslog table vars ;;
        drive) echo check format info partition spin-down spin-up start status stop watch with ;;
        serial) echo count login ;;
        syslog) echo apply clear set show ;;
        vars) echo clear create export get get-binary import list set set-binary verify ;;
    esac
}

# Options of every command, and those of this one.
_kestrova_options() {
    local own=''
    case $1 in
        'drive check') own='--repair --wait' ;;
        'drive format') own='--dry-run --force --no-wait --wait --yes -y' ;;
        'drive partition') own='--dry-run --force --save-table --wait --yes -y' ;;
        'drive start') own='--no-wait --wait' ;;
        'drive stop' | 'drive with' | 'drive spin-'*) own=--wait ;;
        fetch) own=-o ;;
        fetch-all) own=-d ;;
        run) own=--in ;;
        shell) own='--wait -e' ;;
        'vars create') own='--file --replace --size' ;;
        'vars verify') own='--file --size' ;;
        'vars '*) own='--file --size --wait' ;;
        'syslog '*) own=--wait ;;
    esac
    printf '%s\n' "--help -h --json --level --minimal --version -v $own"
}

# Offers files (-f) or folders (-d), as they are, with blanks too.
_kestrova_paths() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen "$1" -- "$2")
}

_kestrova_words() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

# $1 the command, $2 how many arguments it has already, $3 what is typed of the next.
_kestrova_argument() {
    case $1:$2 in
        'drive partition:'[0-3]) _kestrova_words rest "$3" ;;
        'serial login:0') _kestrova_words '0 1 2 3 4 5 6 7 8 9' "$3" ;;
        'drive check:0' | 'vars import:0' | 'vars set-binary:1' | 'vars verify:0') _kestrova_paths -f "$3" ;;
    esac
}

# The words in front: sets command, group, value (the letter of an option that waits for one), ended
# (by --) and arguments (how many).
_kestrova_look_back() {
    local word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ $word == '=' ]]; then
            continue # bash makes a word of it: --level = 1
        elif [[ -n $value ]]; then
            value=''
        elif [[ -z $ended && $word == -?* ]]; then
            case $word in
                --) ended=1 ;;
                --level | -[deo]) value=${word: -1} ;;
                --file | --save-table) value=o ;;
                --size | --wait) value=t ;;
            esac
        elif [[ -n $command ]]; then
            arguments+=1
        elif [[ -z $group && -n $(_kestrova_commands "$word") ]]; then
            group=$word
        elif [[ $word != help ]]; then
            command=${group:+$group }$word
        fi
    done
}

_kestrova() {
    local current=${COMP_WORDS[COMP_CWORD]} command='' group='' ended='' value=''
    local -i arguments=0
    COMPREPLY=()
    _kestrova_look_back
    if [[ $current == '=' ]]; then
        current=''
    fi
    if [[ $value == l ]]; then
        _kestrova_words '0 1 2' "$current"
    elif [[ $value == o ]]; then
        _kestrova_paths -f "$current"
    elif [[ $value == d ]]; then
        _kestrova_paths -d "$current"
    elif [[ $value == [et] ]]; then
        return # what a person types here is not known
    elif [[ -z $ended && $current == -* ]]; then
        _kestrova_words "$(_kestrova_options "$command")" "$current"
    elif [[ -z $command ]]; then
        _kestrova_words "$(_kestrova_commands "$group")" "$current"
    else
        _kestrova_argument "$command" "$arguments" "$current"
    fi
}

complete -F _kestrova kestrova
