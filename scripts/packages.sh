#!/usr/bin/env bash
# Installs the Debian packages that a set of tasks needs, and the account that private database servers run as.
# usage: scripts/packages.sh build|servers|checks ...
# Where packages cannot be installed it says which are missing and stops with exit status 1.
set -euo pipefail

build_packages=(g++ cmake ninja-build pkg-config libsqlite3-dev libsodium-dev libinih-dev libxxhash-dev libcli11-dev
  nlohmann-json3-dev libprotozero-dev)
# The server's core and the clients only: the full server package would start a service of its own.
servers_packages=(mariadb-server-core mariadb-client mariadb-backup openssl passwd procps iproute2)
checks_packages=(git libgtest-dev libgmock-dev clang clang-format clang-tidy libclang-rt-dev
  binutils man-db protobuf-compiler graphviz)

wanted=()
need_account=false
for set_name in "$@"; do
  case "$set_name" in
    build) wanted+=("${build_packages[@]}") ;;
    servers) wanted+=("${servers_packages[@]}"); need_account=true ;;
    checks) wanted+=("${checks_packages[@]}") ;;
    *) echo "usage: $0 build|servers|checks ..." >&2; exit 2 ;;
  esac
done

missing=()
for package in "${wanted[@]}"; do
  dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q '^install ok installed$' || missing+=("$package")
done

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  as_root=(sudo -n)
fi

if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  log=$(mktemp)
  trap 'rm -f "$log"' EXIT
  if ! { "${as_root[@]}" apt-get update && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    tail -n 5 "$log" >&2
    echo "These packages are missing and could not be installed here: ${missing[*]}" >&2
    echo "Install them as root (apt-get install ${missing[*]}) and start again." >&2
    exit 1
  fi
fi

# As root, servers run as the account that Debian's own server package would make.
if $need_account && [ "$(id -u)" -eq 0 ] && ! getent passwd mysql >/dev/null; then
  useradd --system --user-group --no-create-home --home-dir /nonexistent --shell /usr/sbin/nologin mysql
  echo "created the account mysql"
fi
