# Completion for fish of bootforge. Names are those of the host, asked of bootforge-analyze.

# Prints the names of a kind behind what stands of the list already.
function __bootforge_list --argument-names kind
    set -l image
    set -l words (commandline -opc) (commandline -ct)
    for i in (seq 2 (count $words))
        switch $words[$i]
            case '--plugin-directory=*'
                set image $words[$i]
            case --plugin-directory
                test $i -lt (count $words); and set image $words[$i] $words[(math $i + 1)]
        end
    end
    set -l value (commandline -ct | string replace -r -- '^--[a-z-]+=' '')
    set -l before (string match -r -- '^.*,' $value); or set before ''
    printf '%s\n' $before(bootforge-analyze names $kind $image 2>/dev/null </dev/null)
end

complete -c bootforge -f
complete -c bootforge -s h -l help -d 'Tell how it is used'
complete -c bootforge -l init -d 'Boot the host, with its syslog and event daemons'
complete -c bootforge -l invoke -d 'Run one method of the plugins'
complete -c bootforge -l method -x -a 'start stop apply_host_profile' -d 'The method that --invoke or --daemon runs'
complete -c bootforge -l plugin -x -a '(__bootforge_list files)' -d 'Load these files in place of the whole folder'
complete -c bootforge -l plugin-directory -x -a '(__fish_complete_directories)' -d 'The plugin folder'
complete -c bootforge -l plugin-flags -x -a '(__bootforge_list flags)' -d 'The flags of the boot'
complete -c bootforge -l disable-plugins -x -a '(__bootforge_list plugins)' -d 'Names of plugins that are denied'
complete -c bootforge -l run-once -x -a '(__bootforge_list keys)' -d 'Keys of run-once plugins that have run'
complete -c bootforge -l parallel -d 'Run what is independent at the same time'
complete -c bootforge -l interactive -d 'Ask before each plugin'
complete -c bootforge -l interactive-mode-requires -x -a '(__bootforge_list plugins)' -d 'Do not ask before these have run'
complete -c bootforge -l dump-dependency-tree -d 'Draw the graph, run nothing'
complete -c bootforge -l randomize -d 'Choose at random among independent plugins'
complete -c bootforge -l trace -d 'Trace the execution'
complete -c bootforge -l verbose -d 'Log the execution'
complete -c bootforge -l daemon -a 'wait nowait' -d 'Start or stop the init scripts'
complete -c bootforge -l daemon-wait-timeout -x -d 'How many seconds to wait for a daemon'
