# shellcheck shell=bash disable=SC2034
# What the scripts print: colours on a terminal only, one way to report and to fail.

if [[ -t 1 && "${TERM:-dumb}" != dumb ]]; then
    qo_bold=$'\e[1m' qo_dim=$'\e[2m' qo_red=$'\e[31m' qo_green=$'\e[32m' qo_reset=$'\e[0m'
else
    qo_bold='' qo_dim='' qo_red='' qo_green='' qo_reset=''
fi

# say KEY TEXT: one aligned line.
say() { printf '%s%-9s%s %s\n' "$qo_dim" "$1" "$qo_reset" "$2"; }

# fail TEXT...: says on stderr what went wrong and ends the script with status 1.
fail() {
    printf '%s%s: %s%s\n' "$qo_red" "${0##*/}" "$*" "$qo_reset" >&2
    exit 1
}

# logged FILE COMMAND...: runs the command with its output in FILE; on failure shows the end of it and ends the script.
logged() {
    local log=$1
    shift
    mkdir -p "$(dirname "$log")"
    if ! "$@" >"$log" 2>&1; then
        tail -n 40 "$log" >&2
        fail "\"$*\" failed; all of its output is in $log"
    fi
}
