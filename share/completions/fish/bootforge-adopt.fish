# Completion for fish of bootforge-adopt. Verbs and options are those of the program's own help.

function __bootforge_adopt_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    if test (count $words) -eq 1
        $words[1] --help 2>/dev/null </dev/null |
            string replace -rf -- '^  ([a-z][a-z-]*|--version)  +(.*)$' '$1\t$2'
        printf '%s\n' --help
    else if test "$words[-1]" = --root
        __fish_complete_directories $current
    else if string match -q -- '--root=*' $current
        printf '%s\n' --root=(__fish_complete_directories (string replace -- --root= '' $current))
    else
        $words[1] $words[2] --help 2>/dev/null </dev/null |
            string replace -rf -- '^  (?:-h,)?(--[a-z-]+)(?: [^ ]+)?(?:  +(.*))?$' '$1\t$2'
    end
end

complete -c bootforge-adopt -f -a '(__bootforge_adopt_complete)'
