# Sourced by test scripts: a directory and a local cloud that end with the script.
# shellcheck shell=sh

directory=$(mktemp -d)
cloud=""
trap '[ -z "$cloud" ] || kill "$cloud"; rm -rf "$directory"' EXIT

# start_cloud KORRIN-CLOUDSIM [OPTION...]: sets $url.
start_cloud() {
    rm -f "$directory/cloud.txt" # of an earlier one
    "$@" --port 0 >"$directory/cloud.txt" &
    cloud=$!
    tries=0
    until [ -s "$directory/cloud.txt" ]; do
        tries=$((tries + 1))
        [ "$tries" -lt 200 ] || { echo "the local cloud does not start" >&2; exit 1; }
        sleep 0.05
    done
    # shellcheck disable=SC2034 # the sourcing script uses it
    url=$(head -n 1 "$directory/cloud.txt")
}

# fails COMMAND...: fails when the command does not; the shell lets "!" pass either way.
fails() {
    if "$@"; then
        echo "unexpected success: $*" >&2
        return 1
    fi
}
