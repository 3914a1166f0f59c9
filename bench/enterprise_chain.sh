#!/usr/bin/env bash
# Enterprise backup and restore through the whole chain (the command, supervision, the stand-in for mysqlbackup, the media
# library) beside mariadb-backup streaming to and from a file on the same data, in turn; and the agent's peak memory.
# usage: bench/enterprise_chain.sh BUILD-FOLDER [MIB [PAIRS]]      on a release build; default 2048 MiB, 5 pairs
set -euo pipefail
build=$(cd "$1" && pwd)
mib=${2:-2048}
pairs=${3:-5}
cd "$(dirname "$0")/.."
agent="$build/tools/orrery_mysql/orrery-mysql"

place=$(mktemp -d /tmp/orrery-bench.XXXXXX)
chmod 0711 "$place"
export ORRERY_HOME="$place/home"
trap 'scripts/mariadb_sandbox stop "$place/db" || true; rm -rf "$place"' EXIT
scripts/mariadb_sandbox start "$place/db"
eval "$(scripts/mariadb_sandbox env "$place/db")"
option_file="$place/client.cnf"
printf '[client]\npassword=%s\n' "$(cat "$place/db/agent.password")" >"$option_file"
sql() { mariadb --defaults-file="$option_file" -u agent -S "$SOCKET" -N -e "$1"; }

"$agent" init >/dev/null
"$agent" instance add db --socket "$SOCKET" --user agent --password-file "$place/db/agent.password" \
  --unix-user "$ACCOUNT" --bin /usr/bin --meb on --meb-bin "$build/tests/mysqlbackup/bin" >/dev/null

echo "filling $mib MiB"
sql 'CREATE DATABASE bench; CREATE TABLE bench.t (id INT PRIMARY KEY AUTO_INCREMENT, a VARBINARY(1000), b VARBINARY(1000))'
for ((filled = 0; filled < mib; filled += 64)); do
  sql "INSERT INTO bench.t (a, b) SELECT RANDOM_BYTES(1000), RANDOM_BYTES(1000) FROM bench.seq_1_to_30000"
done
"$agent" setting set MySQL.bManualServerStart 1 >/dev/null
sql 'SET GLOBAL innodb_max_dirty_pages_pct = 0'
until [ "$(sql "SELECT variable_value < 100 FROM information_schema.global_status WHERE variable_name = 'Innodb_buffer_pool_pages_dirty'")" = 1 ]; do sleep 1; done

raw=0 ours=0  # milliseconds of the last pair
now() { date +%s%N; }
# timed NAME COMMAND...: leaves the milliseconds in the variable NAME. What an earlier one left to be written is not its
# cost; and a virtual machine that gives freed memory back to its host has done so by then, so that all begin alike.
timed() {
  local name=$1 begin
  shift
  sync
  sleep 5
  begin=$(now)
  "$@"
  printf -v "$name" '%d' $((($(now) - begin) / 1000000))
}
# Peak memory of the agent in KiB, children not counted.
peak=0
watched() {
  "$@" >/dev/null &
  local pid=$! seen
  while kill -0 "$pid" 2>/dev/null; do
    seen=$(awk '/VmHWM/ { print $2 }' "/proc/$pid/status" 2>/dev/null || true)
    [ -z "$seen" ] || [ "$seen" -le "$peak" ] || peak=$seen
    sleep 0.2
  done
  wait "$pid"
}
raw_backup() {
  mariadb-backup --defaults-file="$option_file" --backup --stream=xbstream --user=agent --socket="$SOCKET" \
    --datadir="$DATADIR" --target-dir="$place/work" >"$place/raw.xb" 2>"$place/raw.log"
  sync "$place/raw.xb"
}
# raw_restore FOLDER
raw_restore() {
  mkdir -p "$place/unpacked" "$1"
  mbstream -x -C "$place/unpacked" <"$place/raw.xb"
  mariadb-backup --prepare --target-dir="$place/unpacked" >>"$place/raw.log" 2>&1
  mariadb-backup --no-defaults --copy-back --target-dir="$place/unpacked" --datadir="$1" >>"$place/raw.log" 2>&1
  rm -r "$place/unpacked"
  chown -R "$ACCOUNT:" "$1"
}
# What a person does who restores into a server by hand.
raw_restore_into_server() {
  mariadb-admin --defaults-file="$option_file" -u agent -S "$SOCKET" shutdown
  while [ -S "$SOCKET" ]; do sleep 0.1; done
  find "$DATADIR" -mindepth 1 -delete
  raw_restore "$DATADIR"
}
# Restores leave the server stopped.
up() { sql 'SELECT 1' >/dev/null 2>&1 || scripts/mariadb_sandbox start "$place/db"; }
# in_turn NAME RAW OURS...: adds a line with the ratio to the variable NAME. Which of the two comes first changes from pair
# to pair.
in_turn() {
  local -n lines=$1
  local other=$2
  shift 2
  # shellcheck disable=SC2086 # a command with its argument
  ((pair % 2 == 0)) || timed raw $other
  up
  timed ours "$@"
  up
  # shellcheck disable=SC2086
  ((pair % 2)) || timed raw $other
  up
  lines+=$(awk "BEGIN { print $raw / $ours }")$'\n'
}
ratios() { grep . | sort -n | awk '{ r[NR] = $1 } END { printf "%.2f to %.2f, median %.2f\n", r[1], r[NR], r[int((NR + 1) / 2)] }'; }

backups="" folders="" servers="" byhand=""
for ((pair = 1; pair <= pairs; pair++)); do
  in_turn backups raw_backup watched "$agent" backup db
  printf 'backup            %2d: chain %5d ms, file %5d ms\n' "$pair" "$ours" "$raw"
  in_turn folders "raw_restore $place/raw" watched "$agent" restore db --to-time now --into "$place/ours"
  printf 'into a folder     %2d: chain %5d ms, file %5d ms\n' "$pair" "$ours" "$raw"
  rm -rf "$place/raw" "$place/ours"
  in_turn servers "raw_restore $place/raw" watched "$agent" restore db --to-time now
  printf 'into the server   %2d: chain %5d ms, file %5d ms\n' "$pair" "$ours" "$raw"
  in_turn byhand raw_restore_into_server watched "$agent" restore db --to-time now
  printf 'into the server   %2d: chain %5d ms, by hand from the file %5d ms\n' "$pair" "$ours" "$raw"
  rm -rf "$place/raw" "$place/raw.xb" "$place"/home/media/*
done
echo 'throughput of the chain, of that of the file:'
echo "backup                   $(ratios <<<"$backups")"
echo "restore into a folder    $(ratios <<<"$folders")"
echo "restore into the server  $(ratios <<<"$servers") (its stop is part of it, and of no file)"
echo "                         $(ratios <<<"$byhand") (of the same by hand: stop, empty, restore from the file)"
echo "peak memory of the agent: $peak KiB"
