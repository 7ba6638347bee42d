# shellcheck shell=bash
# A Slurm controller and a node of this machine, on loopback, with everything in one directory. Sourced.
#   cluster_start DIRECTORY    starts munged, slurmctld and slurmd there; sets SLURM_CONF for the clients
#   cluster_stop               ends them

cluster_start() {
  cluster=$1
  local user ctld=27817 d=27818
  user=$(id -un)
  mkdir -p "$cluster/spool" "$cluster/state"
  chmod 755 "$cluster"
  head -c 1024 /dev/urandom > "$cluster/munge.key"
  chmod 600 "$cluster/munge.key"
  /usr/sbin/munged --force --key-file="$cluster/munge.key" --socket="$cluster/munge.socket" \
    --pid-file="$cluster/munged.pid" --log-file="$cluster/munged.log" --seed-file="$cluster/munge.seed"

  cat > "$cluster/slurm.conf" << EOF
ClusterName=zeph
SlurmctldHost=$(hostname -s)(127.0.0.1)
SlurmctldPort=$ctld
SlurmdPort=$d
SlurmUser=$user
SlurmdUser=$user
AuthType=auth/munge
AuthInfo=socket=$cluster/munge.socket
CryptoType=crypto/munge
CredType=cred/munge
StateSaveLocation=$cluster/state
SlurmdSpoolDir=$cluster/spool
SlurmctldPidFile=$cluster/slurmctld.pid
SlurmdPidFile=$cluster/slurmd.pid
SlurmctldLogFile=$cluster/slurmctld.log
SlurmdLogFile=$cluster/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
MpiDefault=none
SwitchType=switch/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
SchedulerType=sched/builtin
SchedulerParameters=sched_interval=1
KillWait=10
MinJobAge=300
ReturnToService=2
NodeName=$(hostname -s) NodeAddr=127.0.0.1 CPUs=$(nproc) RealMemory=100 State=UNKNOWN
PartitionName=all Nodes=ALL Default=YES MaxTime=INFINITE State=UP OverSubscribe=FORCE:4
EOF
  printf 'CgroupPlugin=cgroup/v1\nCgroupAutomount=no\n' > "$cluster/cgroup.conf"
  export SLURM_CONF=$cluster/slurm.conf
  /usr/sbin/slurmctld -i || return 1
  /usr/sbin/slurmd || return 1
  for _ in $(seq 60); do
    sinfo --noheader --format=%t 2> /dev/null | grep -q idle && return 0
    sleep 0.5
  done
  echo "the node did not come up:"
  tail -n 20 "$cluster"/*.log
  return 1
}

cluster_stop() {
  local name pid
  for name in slurmd slurmctld munged; do
    [ -f "$cluster/$name.pid" ] || continue
    pid=$(cat "$cluster/$name.pid")
    if [ -z "$pid" ] || [ "$pid" -le 1 ]; then continue; fi
    grep -q "$name" "/proc/$pid/comm" || continue # ours, and alive
    kill "$pid" 2> /dev/null
    while [ -e "/proc/$pid/status" ] && ! grep -q '^State:.Z' "/proc/$pid/status"; do sleep 0.2; done
  done
}
