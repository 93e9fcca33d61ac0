#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# A one-node Slurm cluster on this machine, for trying `velomar-cli batch`
# and for its tests: munged, slurmctld and slurmd on loopback with a
# generated slurm.conf, all state and logs in DIR.
#   scripts/slurm_local.sh start DIR   # then: export SLURM_CONF=DIR/slurm.conf
#   scripts/slurm_local.sh stop DIR    # cancels the jobs, stops the daemons
# start exits 0 once the node is idle; 2 when Slurm is not installed, 1 when
# it would not come up (with the daemons' last words), stopping what it began.
set -uo pipefail

usage() {
  echo "usage: $0 start|stop DIR" >&2
  exit 1
}
[ $# -eq 2 ] || usage
action=$1
dir=$2

find_program() {
  PATH="$PATH:/usr/sbin:/sbin:/usr/local/sbin" command -v "$1"
}

stop() {
  [ -f "$dir/slurm.conf" ] || return 0
  export SLURM_CONF="$dir/slurm.conf"
  if [ -f "$dir/slurmctld.pid" ]; then
    timeout 10 scancel --user="$(id -un)" --full >/dev/null 2>&1 || true
  fi
  # The daemons in reverse order: slurmd and slurmctld still need munged to part.
  for name in slurmd slurmctld munged; do
    [ -f "$dir/$name.pid" ] || continue
    pid=$(cat "$dir/$name.pid")
    kill "$pid" 2>/dev/null || continue
    for _ in $(seq 50); do
      kill -0 "$pid" 2>/dev/null || break
      sleep 0.1
    done
    kill -9 "$pid" 2>/dev/null || true
    rm -f "$dir/$name.pid"
  done
}

start() {
  local missing=()
  for p in munged slurmctld slurmd sbatch squeue scancel sinfo; do
    find_program "$p" >/dev/null || missing+=("$p")
  done
  if [ ${#missing[@]} -gt 0 ]; then
    echo "Slurm is not installed here (no ${missing[*]}): scripts/setup.sh installs" \
      "slurmctld, slurmd, slurm-client and munge" >&2
    exit 2
  fi
  # The munge socket's name must stay short (a socket path holds 107 bytes).
  if [ ${#dir} -gt 80 ]; then
    echo "DIR is too long for a socket name: $dir" >&2
    exit 1
  fi
  mkdir -p "$dir/state" "$dir/spool"
  dir=$(cd "$dir" && pwd)
  # munged wants every user able to reach its socket's folder.
  chmod 755 "$dir"
  local node user cpus ports
  node=$(hostname -s)
  user=$(id -un)
  cpus=$(nproc)
  [ "$cpus" -gt 2 ] && cpus=2
  # Two free ports on loopback, as the kernel hands them out.
  ports=$(python3 -c 'import socket
s=[socket.socket() for _ in range(2)]
[x.bind(("127.0.0.1",0)) for x in s]
print(*[x.getsockname()[1] for x in s])' 2>/dev/null) || ports="$((20000 + $$ % 20000)) $((20001 + $$ % 20000))"
  set -- $ports
  cat >"$dir/slurm.conf" <<EOF
ClusterName=velomarlocal
SlurmctldHost=$node(127.0.0.1)
SlurmUser=$user
SlurmdUser=$user
SlurmctldPort=$1
SlurmdPort=$2
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket=$dir/munge.sock
StateSaveLocation=$dir/state
SlurmdSpoolDir=$dir/spool
SlurmctldPidFile=$dir/slurmctld.pid
SlurmdPidFile=$dir/slurmd.pid
SlurmctldLogFile=$dir/slurmctld.log
SlurmdLogFile=$dir/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SchedulerType=sched/builtin
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
ReturnToService=2
MpiDefault=none
MailProg=/bin/true
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
MinJobAge=3600
NodeName=$node NodeAddr=127.0.0.1 CPUs=$cpus RealMemory=1000 State=UNKNOWN
PartitionName=local Nodes=$node Default=YES MaxTime=INFINITE State=UP
EOF
  head -c 1024 /dev/urandom >"$dir/munge.key"
  chmod 600 "$dir/munge.key"
  export SLURM_CONF="$dir/slurm.conf"
  # Each daemon forks into the background once it is set up, and fails here
  # when it cannot be.
  "$(find_program munged)" --key-file="$dir/munge.key" --socket="$dir/munge.sock" \
    --pid-file="$dir/munged.pid" --log-file="$dir/munged.log" --seed-file="$dir/munge.seed" \
    >"$dir/munged.out" 2>&1 || fail "munged did not start"
  "$(find_program slurmctld)" -i -f "$dir/slurm.conf" >"$dir/slurmctld.out" 2>&1 ||
    fail "slurmctld did not start"
  "$(find_program slurmd)" -f "$dir/slurm.conf" -N "$node" >"$dir/slurmd.out" 2>&1 ||
    fail "slurmd did not start"
  local deadline=$(($(date +%s) + 30))
  while [ "$(date +%s)" -lt $deadline ]; do
    if [ "$(timeout 5 sinfo -h -o %T 2>/dev/null)" = idle ]; then
      return 0
    fi
    sleep 0.2
  done
  fail "the node did not become idle in 30 s"
}

fail() {
  echo "the one-node Slurm cluster did not come up: $1" >&2
  tail -n 5 "$dir"/*.out "$dir"/*.log >&2 2>/dev/null
  stop
  exit 1
}

case $action in
  start) start ;;
  stop) stop ;;
  *) usage ;;
esac
