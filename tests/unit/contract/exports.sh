#!/usr/bin/env bash
# usage: exports.sh FOLDER-OF-LISTS LIBORRERY-MYSQL LIBORRERY-PLATFORM LIBOBK [--write]
# Compares what the libraries need and offer with the lists kept here; --write makes the lists anew.
set -euo pipefail
lists=$1 mysql=$2 platform=$3 obk=$4 mode=${5:-compare}

needed() { readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort; }
# One line for names that differ only in the kind of their constructor, destructor or type information: {kinds} in it.
folded() {
  awk '{
    if (match($0, /^_ZT[ISV]/)) kind = 4
    else if (match($0, /D[012]Ev$|C[12]E/)) kind = RSTART + 1
    else kind = length + 1
    name = substr($0, 1, kind - 1) "\t" substr($0, kind + 1)
    if (!(name in kinds)) names[++count] = name
    kinds[name] = kinds[name] substr($0, kind, 1)
  } END {
    for (i = 1; i <= count; ++i) {
      found = kinds[names[i]]
      sub(/\t/, found == "" ? "" : "{" found "}", names[i])
      print names[i]
    }
  }'
}
offered() { nm -D --defined-only "$1" | awk '{print $NF}' | sed 's/@.*//' | sort -u | folded; }

if [ "$mode" = --write ]; then
  offered "$mysql" >"$lists/orrery-mysql.symbols"
  offered "$platform" >"$lists/orrery-platform.symbols"
  offered "$obk" >"$lists/libobk.symbols"
  exit 0
fi

status=0
for need in $(needed "$mysql"); do
  case "$need" in
    libc.so.6|libstdc++.so.6|libgcc_s.so.1|libm.so.6|liborrery-platform.so.0|ld-linux-*) ;;
    *) echo "liborrery-mysql.so needs $need"; status=1 ;;
  esac
done
for need in $(needed "$obk"); do
  case "$need" in
    libc.so.6|libstdc++.so.6|libgcc_s.so.1|libm.so.6|libsodium.so.*|liborrery-platform.so.0|ld-linux-*) ;;
    *) echo "libobk.so needs $need"; status=1 ;;
  esac
done
for pair in "orrery-mysql $mysql" "orrery-platform $platform" "libobk $obk"; do
  if ! diff -u "$lists/${pair%% *}.symbols" <(offered "${pair#* }"); then
    echo "${pair#* } offers other names than its list; if that is meant: $0 $lists $mysql $platform $obk --write"
    status=1
  fi
done
[ "$(readelf -d "$mysql" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')" = liborrery-mysql.so.0 ] || { echo "SONAME"; status=1; }
exit $status
