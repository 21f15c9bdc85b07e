# Completion for fish of bootforge-analyze. Verbs and options are those of the program's own help, names
# those of the image that the command line is about.

function __bootforge_analyze_names --argument-names kind
    set -l image
    set -l words (commandline -opc) (commandline -ct)
    set -l i 2
    while test $i -le (count $words)
        set -l word (string replace -r -- '(^|=)~/' "\$1$HOME/" $words[$i])
        switch $word
            case --root --plugin-directory --init-list
                set i (math $i + 1)
                test $i -le (count $words)
                and set -a image $word (string replace -r -- '^~/' "$HOME/" $words[$i])
            case '--root=*' '--plugin-directory=*' '--init-list=*' --daemons
                set -a image $word
        end
        set i (math $i + 1)
    end
    $words[1] names $kind $image 2>/dev/null </dev/null
end

# Prints what may stand in a value that the help names so. $front stands before each.
function __bootforge_analyze_values --argument-names kind front value option
    set -l before (string match -r -- '^.*,' $value); or set before ''
    switch $kind
        case '*|*'
            printf '%s\n' $front(string split '|' -- $kind)
        case DIR
            printf '%s\n' $front(__fish_complete_directories $value)
        case FILE
            printf '%s\n' $front(__fish_complete_path $value)
        case 'FILE,...'
            printf '%s\n' $front$before(__bootforge_analyze_names files)
        case 'FLAG,...'
            printf '%s\n' $front$before(__bootforge_analyze_names flags)
        case 'KEY,...'
            printf '%s\n' $front$before(__bootforge_analyze_names keys)
        case 'NAME,...'
            printf '%s\n' $front$before(__bootforge_analyze_names plugins)
        case NAME
            printf '%s\n' $front(__bootforge_analyze_names plugins)
            test "$option" = --around
            and printf '%s\n' $front(__bootforge_analyze_names milestones)
        case 'NAME=US'
            printf '%s\n' $front(__bootforge_analyze_names plugins)=
        case '*'
            # A word that is meant as it stands.
            string match -qr -- '^[a-z]' $kind; and printf '%s\n' $front$kind
    end
end

function __bootforge_analyze_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l program $words[1]
    if test (count $words) -eq 1
        $program --help 2>/dev/null </dev/null |
            string replace -rf -- '^  ([a-z][a-z-]*|--version)  +(.*)$' '$1\t$2'
        printf '%s\n' --help
        return
    end
    # OPTION, its value's name or nothing, and what it is about.
    set -l options ($program $words[2] --help 2>/dev/null </dev/null |
        string replace -rf -- '^  (?:-h,)?(--[a-z-]+)(?: ([^ ]+))?(?:  +(.*))?$' '$1\t$2\t$3')
    set -l option
    set -l front
    set -l value $current
    if string match -q -- '--*=*' $current
        set option (string replace -r -- '=.*' '' $current)
        set front $option=
        set value (string replace -r -- '^[^=]*=' '' $current)
    else if string match -q -- '-*' $words[-1]; and not string match -q -- '-*' $current
        set option $words[-1]
    end
    for line in $options
        set -l fields (string split \t -- $line)
        if test "$fields[1]" = "$option"; and test -n "$fields[2]"
            __bootforge_analyze_values $fields[2] "$front" "$value" $option
            return
        end
    end
    if string match -q -- '-*' $current
        string replace -r -- '^([^\t]*)\t[^\t]*' '$1' $options
        return
    end
    switch $words[2]
        case why
            __bootforge_analyze_names plugins
            __bootforge_analyze_names milestones
        case critical-chain
            __bootforge_analyze_names plugins
        case names
            printf '%s\n' plugins files milestones flags keys
        case diff gate fleet
            __fish_complete_path $current
    end
end

complete -c bootforge-analyze -f -a '(__bootforge_analyze_complete)'
