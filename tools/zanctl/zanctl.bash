# SPDX-License-Identifier: MIT
# shellcheck shell=bash
#
# Completion for zanctl.  Commands and options come from its own --help.  Paths
# are completed with the instances of multi-instance objects and their values, if
# the daemon lists them as zansim does, one per line: "1 name=admin level=3".

# Prints the help of zanctl or of one of its commands.
_zanctl_help() {
    "$zanctl" "$@" --help 2>/dev/null
}

# Lists the commands of zanctl or of one of its groups.
_zanctl_commands() {
    _zanctl_help "$@" | awk '/^  [a-z]/ { print $1 }'
}

_zanctl_options() {
    _zanctl_help "$@" | grep -oE -e '^  (-h,)?--[a-z-]+' | grep -oE -e '--[a-z-]+'
}

# Lists the options with a value, which the help shows in capitals.
_zanctl_options_with_word() {
    _zanctl_help "$@" | grep -oE -e '^  --[a-z-]+ [A-Z]+' | cut -d' ' -f3
}

_zanctl_array() {
    [ -r /tmp/zan_qid ] || return 0
    "$zanctl" array --timeout 1 "$1" 2>/dev/null
}

_zanctl_logging_modules() {
    "$zanctl" log list 2>/dev/null | awk 'NR > 1 { print $1 }'
}

# Lists the words that the help of a command offers for argument number $1, from 0.
_zanctl_one_of() {
    local position=$1
    shift
    _zanctl_help "$@" | awk -v position="$position" '
        /^Positionals:/ { inside = 1; next }
        /^ *$/ { inside = 0 }
        inside && /^  [A-Z]/ && at++ == position && sub(/.* one of: /, "") {
            gsub(/, /, "\n")
            print
        }'
}

# Completes N of OBJECT:N and VALUE of OBJECT:N/VALUE.
_zanctl_paths() {
    local typed=$1 object number
    if [[ $typed =~ ^(.*):([0-9]+)/[^/:]*$ ]]; then
        object=${BASH_REMATCH[1]} number=${BASH_REMATCH[2]}
        _zanctl_array "$object" | awk -v object="$object" -v number="$number" '
            $1 == number {
                for (i = 2; i <= NF; i++)
                    if (sub(/=.*/, "", $i))
                        print object ":" number "/" $i
            }'
    elif [[ $typed =~ ^(.*):[0-9]*$ ]]; then
        object=${BASH_REMATCH[1]}
        _zanctl_array "$object" | awk -v object="$object" '$1 ~ /^[0-9]+$/ { print object ":" $1 }'
    fi
}

_zanctl_interfaces() {
    awk -F: 'NF > 1 { gsub(/ /, "", $1); print $1 }' /proc/net/dev
}

# Lists KEY= for each member of a kind of event message.  The help lists the kinds as it
# lists commands.
_zanctl_members() {
    _zanctl_help event encode | awk -v kind="$1" '
        $1 == kind { for (i = 2; i <= NF; i++) { sub(/,/, "", $i); print $i "=" } }'
}

_zanctl() {
    local zanctl=$1
    # Taken from the line, because bash ends a word at a colon.
    local line=${COMP_LINE:0:COMP_POINT}
    local current=${line##*[[:space:]]}
    local -a words
    read -ra words <<<"${line%"$current"}"

    local word='' skip='' with_word commands
    local -a command=() arguments=()
    # fad is the old name of action, which the help does not list.
    commands=" $(_zanctl_commands | tr '\n' ' ')"
    [[ " ${words[*]} " != *' fad '* ]] || commands+='fad '
    with_word=" $(_zanctl_options_with_word | tr '\n' ' ')"
    for word in "${words[@]:1}"; do
        if [ -n "$skip" ]; then
            skip=''
        elif [[ $with_word == *" $word "* ]]; then
            skip=1
        elif [[ $commands == *" $word "* ]]; then
            command+=("$word")
            commands=" $(_zanctl_commands "${command[@]}" | tr '\n' ' ')"
            with_word=" $(_zanctl_options_with_word "${command[@]}" | tr '\n' ' ')"
        elif [[ $word != -* ]]; then
            arguments+=("$word")
        fi
    done

    local choices=''
    if [[ $word == --watch ]]; then
        choices=$(_zanctl_paths "$current")
    elif [ -n "$skip" ]; then
        choices=''
    elif [[ ${command[0]-} == help && $current != -* ]]; then
        choices=$(_zanctl_commands "${arguments[@]}")
    elif [[ $current == -* ]]; then
        choices=$(_zanctl_options "${command[@]}")
    elif [[ ${command[*]} == 'event decode '* ]]; then
        choices=''
    elif [[ ${command[*]} == 'event encode '* ]]; then
        choices=$(_zanctl_members "${command[2]}")
        compopt -o nospace 2>/dev/null || : # the value follows
    elif [[ $commands == *[a-z]* ]]; then
        choices=${commands// /$'\n'}
    elif _zanctl_help "${command[@]}" | grep -q '^Usage:.* \[\?PATH'; then
        choices=$(_zanctl_paths "$current")
    elif [[ ${command[*]} == ifaddr || $word == mac-port ]]; then
        choices=$(_zanctl_interfaces)
    elif [[ "${command[*]}" == log* && ${#arguments[@]} -eq 0 ]] &&
        _zanctl_help "${command[@]}" | grep -q '^Usage:.* MODULE'; then
        choices=$(_zanctl_logging_modules)
    elif [ ${#command[@]} -gt 0 ]; then
        choices=$(_zanctl_one_of "${#arguments[@]}" "${command[@]}")
    fi

    local IFS=$'\n'
    local choice prefix=''
    # Bash completes only what follows the last colon.
    if [[ $current == *:* && $COMP_WORDBREAKS == *:* ]]; then
        prefix=${current%:*}:
    fi
    COMPREPLY=()
    for choice in $choices; do
        if [[ $choice == "$current"* ]]; then
            COMPREPLY+=("${choice#"$prefix"}")
        fi
    done
}

complete -F _zanctl zanctl
