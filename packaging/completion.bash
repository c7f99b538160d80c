# Completion for zuskux-manager, zuskux-hal, zuskux-record and zuskux-generate-site: offers the
# options that the program's --help lists. completion.zsh and completion.fish do the same.

_zuskux() {
  local program=$1 word=$2 previous=$3
  COMPREPLY=()
  case $previous in
    --hal)
      mapfile -t COMPREPLY < <(compgen -W 'embedded unix unix:' -- "$word")
      return
      ;;
    --data-plane)
      mapfile -t COMPREPLY < <(compgen -W 'linux' -- "$word")
      return
      ;;
    --kind)
      mapfile -t COMPREPLY < <(compgen -W 'vrf vlan host ecmp mpls' -- "$word")
      return
      ;;
    --explain | --max-removals | --netns | --audit | --deadline | --table-size | --restart-hal-after | --max-payload | --objects | --seed)
      return
      ;;
  esac
  if [[ $word == -* ]]; then
    local options help=(--help)
    # A command of zuskux-manager has options of its own.
    [[ ${program##*/} == zuskux-manager && ${COMP_WORDS[1]} == [a-z]* ]] &&
      "$program" help "${COMP_WORDS[1]}" >/dev/null 2>&1 && help=(help "${COMP_WORDS[1]}")
    options=$("$program" "${help[@]}" | grep -oE -- '--[a-z][a-z-]*' | sort -u)
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
  elif [[ $COMP_CWORD -eq 1 ]]; then
    local commands
    commands=$("$program" --help | sed -nE 's/^(Usage:)? +'"${program##*/}"' ([a-z]+) .*/\2/p')
    mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$word"; compgen -f -- "$word")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
  fi
}

complete -o filenames -F _zuskux zuskux-manager zuskux-hal zuskux-record zuskux-generate-site
