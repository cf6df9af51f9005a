# fish completion for clipinfo. The options come from its usage text.

# Prints what the word at the cursor is: option, file or time.
function __clipinfo_expects
    set -l words (commandline -opc)
    switch $words[-1]
        case -startAt -trimTo -placeAt
            echo time
        case -svg
            echo file
        case '*'
            if string match -q -- '-*' (commandline -ct); and not contains -- - $words
                echo option
            else
                echo file
            end
    end
end

complete -c clipinfo -f
complete -c clipinfo -n 'test (__clipinfo_expects) = file' -F
complete -c clipinfo -n 'test (__clipinfo_expects) = option' \
    -a '(clipinfo 2>&1 </dev/null | string match -ar -- "-[[:alpha:]]+" | sort -u)'
