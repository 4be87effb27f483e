# What the shell of "scripts/demo --shell" reads: completion and the manual of pushpullctl, as an installation has them.
packaging=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../../packaging")
# shellcheck source=/dev/null
source "$packaging/pushpullctl.bash-completion"
man() {
    case ${1:-} in
    pushpullctl) command man "$packaging/pushpullctl.1" ;;
    *) command man "$@" ;;
    esac
}
PS1='pushpull demo> '
