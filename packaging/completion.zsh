#compdef zuskux-manager zuskux-hal zuskux-record zuskux-generate-site
# Completion for zsh: offers the options and commands that the program's --help lists, like
# completion.bash.

local program=${words[1]}
case ${words[CURRENT - 1]} in
  --hal)
    compadd -- embedded unix unix:
    return
    ;;
  --data-plane)
    compadd -- linux
    return
    ;;
  --explain | --netns | --audit | --deadline | --table-size | --restart-hal-after | --max-payload | --objects | --seed)
    return
    ;;
esac
if [[ ${words[CURRENT]} == -* ]]; then
  compadd -- ${(f)"$($program --help | grep -oE -- '--[a-z][a-z-]*' | sort -u)"}
else
  if ((CURRENT == 2)); then
    compadd -- ${(f)"$($program --help | sed -nE 's/^(Usage:)? +'"${program:t}"' ([a-z]+) .*/\2/p')"}
  fi
  _files
fi
