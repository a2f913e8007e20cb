# A bare Debian system for scripts to work in: a folder with Debian's required packages and apt, from the package sources of
# this machine. To be sourced, in bash with -euo pipefail, at the top of the tree. Messages name the script in $0.

git() { command git -c safe.directory='*' "$@"; }

# bare_start NAME: checks what is needed and makes the folder $bare_work, which goes when the script ends, in the folder that
# TMPDIR names, or /var/tmp.
bare_start() {
    if [ "$(id -u)" -ne 0 ]; then
        echo "$0: needs root" >&2
        exit 1
    fi
    scripts/prerequisites mmdebstrap iproute2 git
    [ -z "$(git status --porcelain)" ] || echo "$0: takes HEAD, without what is not committed" >&2
    bare_work=$(mktemp -d -p "${TMPDIR:-/var/tmp}" "$1-XXXXXX")
    chmod 755 "$bare_work"
    bare_inside=
    trap '[ -z "$bare_inside" ] || { kill -KILL "$bare_inside"; sleep 1; }; rm -rf --one-file-system "$bare_work"' EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM
}

# bare_namespaces [OPTION...] COMMAND...: the options are those of unshare. All processes of the command end with it, or with
# the script, and its mounts with them.
bare_namespaces() {
    local result=0
    unshare --mount --pid --fork --kill-child "$@" &
    bare_inside=$!
    wait $bare_inside || result=$?
    bare_inside=
    return $result
}

# bare_make ROOT: makes the system, with an ordinary user "user".
bare_make() {
    local root=$1 targets codename extra=()
    # shellcheck disable=SC2016 # apt's variables
    targets=(apt-get indextargets --format '$(ORIGIN) $(CODENAME) deb $(REPO_URI) $(RELEASE) $(COMPONENT)'
        'Created-By: Packages')
    [ -n "$("${targets[@]}")" ] || apt-get update -qq
    # shellcheck source=/dev/null
    codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    "${targets[@]}" | sed -n "s/^Debian ${codename}[^ ]* deb /deb /p" | sort -u >"$bare_work/sources.list"
    [ -s "$bare_work/sources.list" ] || { echo "$0: apt knows no sources of Debian $codename" >&2; exit 1; }
    # How this machine reaches them.
    apt-config dump | grep -E '^Acquire::(https?|ftp|Check-|Retries|ForceIPv)' >"$bare_work/apt.conf" || true
    if grep -q 'https:' "$bare_work/sources.list"; then
        extra=(--include=ca-certificates)  # with what this machine trusts besides
    fi
    echo "== a bare Debian $codename from"
    cat "$bare_work/sources.list"
    bare_namespaces --mount-proc mmdebstrap --quiet --variant=minbase --mode=root --aptopt="$bare_work/apt.conf" \
        "${extra[@]}" "$codename" "$root" "$bare_work/sources.list" >"$bare_work/log" 2>&1 || {
        cat "$bare_work/log" >&2
        exit 1
    }
    if [ ${#extra[@]} -gt 0 ]; then
        cp /etc/ssl/certs/ca-certificates.crt "$root/etc/ssl/certs/"
    fi
    echo 'APT::Get::Assume-Yes "true";' >"$root/etc/apt/apt.conf.d/99assume-yes"
    printf '127.0.0.1\tlocalhost bare\n::1\tlocalhost\n' >"$root/etc/hosts"
    chroot "$root" useradd --create-home --shell /bin/bash user
}

# bare_clone ROOT USER: a clone of HEAD in the user's home.
bare_clone() {
    local home=/root
    [ "$2" = root ] || home=/home/$2
    [ -e "$bare_work/tree.bundle" ] || git bundle create -q "$bare_work/tree.bundle" HEAD
    git -c advice.detachedHead=false clone -q "$bare_work/tree.bundle" "$1$home/zulstats"
    chroot "$1" chown -R "$2:" "$home/zulstats"
}

# What the system finds around it, in its namespaces: $1 is its root.
# shellcheck disable=SC2016 # for the shell there
bare_mounts='
set -euo pipefail
root=$1
hostname bare
mount -t proc proc "$root/proc"
mount -t sysfs -o ro sysfs "$root/sys"
mount -t tmpfs -o mode=755 tmpfs "$root/dev"
for device in null zero full random urandom tty; do
    touch "$root/dev/$device"
    mount --bind "/dev/$device" "$root/dev/$device"
done
mkdir "$root/dev/pts" "$root/dev/shm"
mount -t devpts -o newinstance,mode=620,ptmxmode=666 devpts "$root/dev/pts"
mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
ln -s pts/ptmx "$root/dev/ptmx"
ln -s /proc/self/fd "$root/dev/fd"
for i in 0:stdin 1:stdout 2:stderr; do
    ln -s "/proc/self/fd/${i%:*}" "$root/dev/${i#*:}"
done
'

# The command $4 of the user $2 with the home $3.
# shellcheck disable=SC2016 # for the shell there
bare_enter=$bare_mounts'
user=$2 home=$3 command=$4
if [ "$user" != root ]; then
    ip link set lo up
fi
status=0
chroot "$root" env -i HOME="$home" USER="$user" LOGNAME="$user" SHELL=/bin/bash LANG=C.UTF-8 TERM="${TERM:-dumb}" \
    PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive \
    ${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"} ${no_proxy:+no_proxy="$no_proxy"} \
    setpriv --reuid "$user" --regid "$user" --init-groups \
    bash -c "cd ~ && $command" </dev/null || status=$?
exit $status
'

# bare_run ROOT USER COMMAND: the command, a line for a shell in the user's home. Only root has a network besides loopback.
bare_run() {
    local home=/root net=()
    [ "$2" = root ] || home=/home/$2 net=(--net)
    bare_namespaces --uts --ipc "${net[@]}" bash -c "$bare_enter" enter "$1" "$2" "$home" "$3"
}

# The system's root becomes that of the namespaces, and systemd their first process.
# shellcheck disable=SC2016 # for the shell there
bare_start_systemd=$bare_mounts'
ip link set lo up
mount --rbind "$root" "$root"
mount -t tmpfs -o mode=755 tmpfs "$root/run"
mount -t cgroup2 cgroup2 "$root/sys/fs/cgroup"
cd "$root"
pivot_root . mnt
exec chroot . /usr/bin/env -i container=bare /bin/sh -c \
    "umount -l /mnt && exec /lib/systemd/systemd --system --unit=bare.service" </dev/null >/root/systemd.log 2>&1
'

# bare_boot ROOT COMMAND: starts the system, in which systemd is installed, with the command, a line for root's shell, and
# ends it after that. It has a branch of control groups to itself, and no network but loopback.
bare_boot() {
    local root=$1 groups=/sys/fs/cgroup result=0
    [ "$(stat -f -c %T $groups)" = cgroup2fs ] || groups+=/unified
    if [ "$(stat -f -c %T $groups 2>/dev/null)" != cgroup2fs ]; then
        echo "$0: this machine has no second version of control groups, which systemd needs" >&2
        return 1
    fi
    groups+=/${bare_work##*/}
    printf '#!/bin/bash\n%s\n' "$2" >"$root/root/bare-command"
    cat >"$root/etc/systemd/system/bare.service" <<'END'
[Unit]
SuccessAction=exit-force
FailureAction=exit-force
SuccessActionExitStatus=0
FailureActionExitStatus=1
[Service]
Type=oneshot
ExecStart=/bin/bash /root/bare-command
WorkingDirectory=/root
Environment=HOME=/root LANG=C.UTF-8
StandardOutput=file:/root/bare.log
StandardError=file:/root/bare.log
TimeoutStartSec=300
END
    mkdir "$groups"
    # shellcheck disable=SC2016 # for the shell there
    bare_namespaces --uts --ipc --net bash -c \
        'echo 0 >"$1/cgroup.procs" && exec unshare --cgroup bash -c "$2" boot "$3"' boot "$groups" "$bare_start_systemd" "$root" ||
        result=$?
    cat "$root/root/bare.log" || cat "$root/root/systemd.log" || true
    find "$groups" -depth -type d -exec rmdir {} +
    return $result
}
