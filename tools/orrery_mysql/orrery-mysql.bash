# Bash completion for orrery-mysql.

# Names of the instances in the home that the command line chooses.
_orrery_mysql_instances() {
  local index home=()
  for ((index = 1; index < COMP_CWORD; index++)); do
    [[ ${COMP_WORDS[index]} == --home ]] && home=(--home "${COMP_WORDS[index + 1]}")
  done
  orrery-mysql "${home[@]}" --format json instance list 2>/dev/null | sed -n 's/^ *"name": "\(.*\)",\{0,1\}$/\1/p'
}

_orrery_mysql_setting_keys() {
  orrery-mysql --format json setting list 2>/dev/null | sed -n 's/^ *"key": "\(.*\)",\{0,1\}$/\1/p'
}

# One candidate per line; names may hold blanks.
_orrery_mysql_offer() {
  local candidate
  COMPREPLY=()
  while IFS= read -r candidate; do
    [[ -n $candidate && $candidate == "$current"* ]] && COMPREPLY+=("$(printf '%q' "$candidate")")
  done
}

_orrery_mysql() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local global='--home --format --access -v --version --help'
  local fields='--socket --user --unix-user --bin --data --config --port --binlog-index --ssl-ca --ssl-key --ssl-cert
    --auto-discovery --meb --meb-bin --meb-no-locking --version-hint --password-file --password-stdin --ask-password
    --no-password'

  case $previous in
    --format) mapfile -t COMPREPLY < <(compgen -W 'table json' -- "$current"); return ;;
    --as)
      if [[ " ${COMP_WORDS[*]} " == *' accounts '* ]]; then
        mapfile -t COMPREPLY < <(compgen -W 'sql json' -- "$current")
      else
        mapfile -t COMPREPLY < <(compgen -W 'text json dot' -- "$current")
      fi
      return ;;
    --level) mapfile -t COMPREPLY < <(compgen -W 'full incremental' -- "$current"); return ;;
    --access) mapfile -t COMPREPLY < <(compgen -W 'auto command library' -- "$current"); return ;;
    --auto-discovery | --meb | --meb-no-locking) mapfile -t COMPREPLY < <(compgen -W 'on off' -- "$current"); return ;;
    --unix-user) mapfile -t COMPREPLY < <(compgen -u -- "$current"); return ;;
    --home | --bin | --data | --meb-bin) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -d -- "$current"); return ;;
    --socket | --config | --binlog-index | --ssl-ca | --ssl-key | --ssl-cert | --password-file | --client-library | --records | --output)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return ;;
    --user | --port | --version-hint | --client | --before | --wait | --subclient | --most | --database | --job) return ;;
    --command) mapfile -t COMPREPLY < <(compgen -c -- "$current"); return ;;
  esac

  local index
  # Behind -- stands another program's command line.
  for ((index = 1; index < COMP_CWORD; index++)); do
    if [[ ${COMP_WORDS[index]} == -- ]]; then
      compopt -o default
      COMPREPLY=()
      return
    fi
  done

  # The words of the command without options and their values.
  local words=()
  for ((index = 1; index < COMP_CWORD; index++)); do
    case ${COMP_WORDS[index]} in
      -v | --version | --help | -h | --yes | --stale | --register | --explain | --password-stdin | --ask-password | --no-password | --configuration | --all | --hex | --no-hex) ;;
      --*=*) ;;
      --*) index=$((index + 1)) ;;
      *) words+=("${COMP_WORDS[index]}") ;;
    esac
  done

  local command="${words[*]:0:2}" options=$global
  case $command in
    'instance add'*) options="$global $fields --client" ;;
    'instance set'*) options="$global $fields" ;;
    'instance remove'*) options="$global --yes" ;;
    'server start'*) options="$global --command --wait" ;;
    'server stop'*) options="$global --command" ;;
    'binlog purge'*) options="$global --before --yes" ;;
    'databases plan'* | 'databases content'* | 'databases add'* | 'databases remove'*) options="$global --subclient" ;;
    backup*) options="$global --subclient --level" ;;
    restore*) options="$global --to-time --into --plan --little-room --yes" ;;
    browse*) options="$global --database" ;;
    metadata*) options="$global --database --records --job --configuration" ;;
    references*) options="$global --as --all --database" ;;
    accounts*) options="$global --as --output --hex --no-hex" ;;
    'job list'*) options="$global --most" ;;
    'instance subclient'*) options="$global --yes" ;;
    'replica release'*) options="$global --stale --yes" ;;
    discover*) options="$global --register --explain" ;;
    init*) options="$global --client --client-library" ;;
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
    return
  fi

  case "${#words[@]} $command" in
    '0 ') mapfile -t COMPREPLY < <(compgen -W 'init discover instance setting mode ping version variable binlog replica server databases paths encode-name metadata references accounts backup restore browse job' -- "$current") ;;
    '1 databases') mapfile -t COMPREPLY < <(compgen -W 'list show plan content add remove' -- "$current") ;;
    '1 job') mapfile -t COMPREPLY < <(compgen -W 'list show watch stop' -- "$current") ;;
    '2 instance subclient') mapfile -t COMPREPLY < <(compgen -W 'list add remove' -- "$current") ;;
    '1 instance') mapfile -t COMPREPLY < <(compgen -W 'add list show set remove subclient' -- "$current") ;;
    '1 setting') mapfile -t COMPREPLY < <(compgen -W 'list get set' -- "$current") ;;
    '1 binlog') mapfile -t COMPREPLY < <(compgen -W 'status list current flush purge' -- "$current") ;;
    '1 replica') mapfile -t COMPREPLY < <(compgen -W 'status hold release' -- "$current") ;;
    '1 server') mapfile -t COMPREPLY < <(compgen -W 'start stop' -- "$current") ;;
    '2 setting get' | '2 setting set') _orrery_mysql_offer < <(_orrery_mysql_setting_keys) ;;
    '1 mode' | '1 ping' | '1 version' | '2 variable '* | '2 instance show' | '2 instance set' | '2 instance remove' | '2 binlog '* | \
      '2 replica '* | '2 server start' | '2 server stop' | '2 databases '* | '3 instance subclient' | '1 paths' | '1 backup' | '1 restore' | '1 browse' | '1 metadata' | \
      '1 references' | '1 accounts')
      _orrery_mysql_offer < <(_orrery_mysql_instances) ;;
  esac
}

complete -F _orrery_mysql orrery-mysql
