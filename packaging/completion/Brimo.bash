# Completion of Brimo's command line for bash.
_Brimo() {
  local words="${COMP_WORDS[COMP_CWORD]}" command= index
  for ((index = 1; index < COMP_CWORD; ++index)); do
    [[ ${COMP_WORDS[index]} == -* ]] || { command=${COMP_WORDS[index]}; break; }
  done
  case $command in
    '') mapfile -t COMPREPLY < <(compgen -W "--json --help --version doctor version process-lookup dhcp-discover ra-detect services proxies set-proxy
      set-static-ip start-watchdog stop-watchdog defunct-restart prevent-sleep-temp start-dhcpd stop-dhcpd spindump stop json
      help" -- "$words") ;;
    process-lookup) [[ $index -ne COMP_CWORD-1 ]] || mapfile -t COMPREPLY < <(compgen -W "tcp udp" -- "$words") ;;
    dhcp-discover | ra-detect)
      mapfile -t COMPREPLY < <(compgen -W "$(ls /sys/class/net 2>/dev/null)" -- "$words") ;;
    set-proxy | set-static-ip)
      if [[ $index -eq COMP_CWORD-1 ]]; then
        mapfile -t COMPREPLY < <(compgen -W "primary $(Brimo services 2>/dev/null | cut -d' ' -f1)" -- "$words")
      elif [[ $command == set-proxy ]]; then
        compopt -o nospace
        mapfile -t COMPREPLY < <(compgen -W "http= https= socks= pac= except= except-simple temporary off" -- "$words")
      fi ;;
    start-dhcpd | spindump) compopt -o default; COMPREPLY=() ;;
  esac
}
complete -F _Brimo Brimo
