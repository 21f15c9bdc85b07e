# Completion for fish of hypcli. Commands and parameters are those of the host.

function __hypcli_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l path
    for word in $words[2..]
        string match -q -- '-*' $word; and break
        set -a path $word
    end
    set -l typed "$path"
    set -l is_path_whole (test (count $path) -eq (math (count $words) - 1); and echo yes)
    set -l shown
    # Nothing but the list is asked: a command with a parameter "help" would run.
    for line in ($words[1] --list 2>/dev/null </dev/null)
        set -l fields (string split \t -- $line)
        if test "$fields[1]" = "$typed"; and test -n "$fields[2]"
            if test "$fields[4]" = value
                # The value is a file, perhaps.
                if test "$words[-1]" = "$fields[2]"; or test "$words[-1]" = "$fields[3]"
                    if not string match -q -- '-*' $current
                        __fish_complete_path $current
                        return
                    end
                end
                if string match -q -- "$fields[2]=*" $current
                    printf '%s\n' $fields[2]=(__fish_complete_path (string replace -- "$fields[2]=" '' $current))
                    return
                end
                printf '%s\t%s\n' $fields[2]= "$fields[6]"
            else
                printf '%s\t%s\n' $fields[2] "$fields[6]"
            end
            test -n "$fields[3]"; and printf '%s\t%s\n' $fields[3] "$fields[6]"
        else if test -n "$is_path_whole" -a -z "$fields[2]"
            set -l all (string split ' ' -- $fields[1])
            set -l count (count $path)
            test (count $all) -gt $count; or continue
            test $count -eq 0; or test "$all[1..$count]" = "$typed"; or continue
            set -l next $all[(math $count + 1)]
            contains -- $next $shown; and continue
            set -a shown $next
            # Of a namespace only its word is shown, of a command what it does.
            if test (count $all) -eq (math $count + 1)
                printf '%s\t%s\n' $next "$fields[6]"
            else
                printf '%s\n' $next
            end
        end
    end
    string match -q -- '-*' $current; or return
    printf '%s\n' --help
    test (count $words) -eq 1; and printf '%s\n' --list --version
end

complete -c hypcli -f -a '(__hypcli_complete)'
