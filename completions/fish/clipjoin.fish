# fish completion for clipjoin, clipstak and cliptune. The options and their descriptions come from
# the usage text of the command.

# Prints a line for each option: its name, a tab, and its description.
function __reelwork_options
    set -l words (commandline -opc)
    $words[1] (string match -r -- '^-clip(?:join|stak|tune)$' $words) 2>&1 </dev/null | awk '
        function put() { sub(/[.:] .*|\.$/, "", text); if (name) print name "\t" text; name = "" }
        /^   ? ?-[a-z]/ {
          put(); name = $1; text = $0
          sub(/^ +-[^ ]+( (-?[a-z][A-Za-z]*|\[color\]|X|Y))*( +|$)/, "", text)
          next
        }
        /^      / && name { sub(/^ +/, ""); text = text (text ? " " : "") $0; next }
        { put() }
        END { put() }'
end

# Prints what the word at the cursor is: option, file, mode, scale, or a value that cannot be
# completed.
function __reelwork_expects
    set -l words (commandline -opc)
    # Two options have two values.
    if test (count $words) -ge 3
        switch $words[-2]
            case -add-chapter -about
                echo value
                return
            case -transparency-mode
                if contains -- $words[-1] transparent transparent16 blend
                    echo value
                    return
                end
        end
    end
    switch $words[-1]
        case -o -chapter-tool-xml '-*LengthOfMovie'
            echo file
        case -transparency-mode
            echo mode
        case -timescale
            echo scale
        case -sameAsTrack -trimToLengthOf -scaleToLengthOf -track -notrack -enable -disable \
                -chapter -nochapter -chapter-name -chapter-track -add-chapter \
                -startAt -trimTo -duration -trimBy -scaleTo -scaleMovieTo -placeAt \
                -rate -{h,v,s,mh,mv,ms}scale -rotate -mrotate -about -htranslate -vtranslate
            echo value
        case '*'
            if string match -q -- '-*' (commandline -ct); and not contains -- - $words
                echo option
            else
                echo file
            end
    end
end

for name in clipjoin clipstak cliptune
    complete -c $name -f
    complete -c $name -n 'test (__reelwork_expects) = file' -F
    complete -c $name -n 'test (__reelwork_expects) = option' -a '(__reelwork_options)'
    complete -c $name -n 'test (__reelwork_expects) = mode' \
        -a 'none straight-alpha transparent transparent16 blend help'
    complete -c $name -n 'test (__reelwork_expects) = scale' -a '-sameAsTrack'
end
