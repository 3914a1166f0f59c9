#!/usr/bin/env bash
# usage: exports.sh FOLDER-OF-LISTS LIBORRERY-MYSQL LIBORRERY-PLATFORM LIBOBK [--write]
# Compares what the libraries need and offer with the lists kept here; --write makes the lists anew.
set -euo pipefail
lists=$1 mysql=$2 platform=$3 obk=$4 mode=${5:-compare}

needed() { readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort; }
offered() { nm -D --defined-only "$1" | awk '{print $NF}' | sed 's/@.*//' | sort -u; }

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
