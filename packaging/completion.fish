# Completion for fish: offers the options and commands that the program's --help lists, like
# completion.bash.

function __zuskux_options
    $argv[1] --help | grep -oE -- '--[a-z][a-z-]*' | sort -u
end

function __zuskux_commands
    $argv[1] --help | sed -nE 's/^(Usage:)? +'(path basename $argv[1])' ([a-z]+) .*/\2/p'
end

for program in zuskux-manager zuskux-hal zuskux-record zuskux-generate-site
    complete -c $program -n 'string match -q -- "-*" (commandline -ct)' \
        -a "(__zuskux_options $program)"
    complete -c $program -n 'test (count (commandline -opc)) -eq 1' -a "(__zuskux_commands $program)"
    complete -c $program -n 'test (commandline -opc)[-1] = --hal' -f -a 'embedded unix unix:'
    complete -c $program -n 'test (commandline -opc)[-1] = --data-plane' -f -a linux
end
