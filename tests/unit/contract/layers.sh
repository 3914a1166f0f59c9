#!/usr/bin/env bash
# usage: layers.sh CHECKOUT
# Dependencies point down only: the library knows the fronts and ports, never a backend or a third party's header.
set -euo pipefail
cd "$1"
status=0
complain() { echo "$1"; status=1; }

upward=$(grep -rnE '#include "(local|testing|tools|orrery/platform/testing)/' include src platform/include || true)
[ -z "$upward" ] || complain "the library or the fronts include a backend: $upward"
foreign=$(grep -rnE '#include [<"](sqlite3|sodium|ini|CLI|nlohmann|gtest|benchmark|mysql|mariadb)' include src platform/include \
  platform/src || true)
[ -z "$foreign" ] || complain "a third party's header where none belongs: $foreign"
sideways=$(grep -rnE '#include "orrery/mysql/' platform || true)
[ -z "$sideways" ] || complain "the platform layer includes the library: $sideways"
exit $status
