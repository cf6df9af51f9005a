# Shared by all transcripts: makes movies, and asks other programs about them.

# clip FILE [SECONDS [OPTION...]]: makes a movie with the given length (default 1) and ffmpeg's options. The
# same arguments always give the same bytes.
clip() {
  local file=$1 seconds=${2:-1}
  shift $(($# < 2 ? $# : 2))
  (($#)) || set -- -c:v mpeg4
  ffmpeg -v error -nostdin -y -fflags +bitexact -f lavfi -i "testsrc=s=64x48:r=10:d=$seconds" \
    -f lavfi -i "sine=sample_rate=8000:d=$seconds" -c:a pcm_s16le -map 0 -map 1 "$@" \
    -flags:v +bitexact -flags:a +bitexact "$file"
}

# streams FILE: one line for each stream: its kind, codec, and number of packets.
streams() {
  ffprobe -v error -count_packets -show_entries stream=codec_type,codec_name,nb_read_packets \
    -of compact=p=0:nk=1 "$1"
}

# facts FILE: one line for each fact that the header of a movie states: track ID, atom, and a field or a table.
facts() {
  clipinfo -atoms "$1" | awk '
    { sub(/^ *(in cmov )?[0-9]+ /, ""); gsub(/\x27/, ""); sub(/ [0-9]+/, ""); sub(/ unknown$|entries=1 /, "") }
    $1 == "mvhd" || $1 == "udta" { track = "movie" }
    $1 == "tkhd" { track = $5; sub("id=", "", track); print track, "trak" }
    /^(elst|stts)/ || NF == 1 && !/^(trak|free|wide|mdat)/ { print track, $0 }
    !/^(ftyp|elst|st..)/ { for (i = 2; i <= NF; ++i) print track, $1, $i }'
}

# differences OLD NEW: what NEW states and OLD does not: tracks and atom, and the fields that differ. Tracks, edit lists and
# user data that NEW does not have follow "-".
differences() {
  diff <(facts "$1") <(facts "$2") | awk '
    function fact(from,   text) { for (text = $from; ++from <= NF;) text = text " " $from; return text }
    $3 ~ /^(dref|edts)$/ && />/ || $3 == "tkhd" && $4 ~ /^duration/ || $4 ~ /^(nextTrackId|modified)/ { next }
    /^</ && ($3 ~ /^(trak|edts)$/ || $2 == "movie" && NF == 3) { print $2, "-", $3; next }
    /^>/ { if (last != $2 " " $3) order[++count] = last = $2 " " $3; found[last] = found[last] " " fact(4) }
    END {
      for (i = 1; i <= count; ++i) {
        split(order[i], key)
        line = key[2] found[order[i]]
        if (!(line in tracks)) lines[++different] = line
        tracks[line] = tracks[line] key[1] " "
      }
      for (i = 1; i <= different; ++i) print tracks[lines[i]] lines[i]
    }'
}

# tune FILE OPTION...: makes out.mov from FILE, by reference, and prints what the options have changed.
tune() {
  cliptune -q "$1" -o same.mov
  cliptune -q "$@" -o out.mov
  differences same.mov out.mov
}

# after TYPE COUNT FILE: that many bytes after each TYPE in a file, in hex.
after() {
  perl -0777 -ne "while (/$1(.{$2})/gs) { print unpack('H*', \$1), \"\\n\" }" "$3"
}

# unprivileged COMMAND...: runs a command that may not ignore the rights of files, even if root runs the tests.
unprivileged() {
  if ((EUID)); then "$@"; else setpriv --bounding-set=-dac_override,-dac_read_search -- "$@"; fi
}

# sound FILE: the checksum of the sound that ffmpeg decodes.
sound() {
  ffmpeg -v error -nostdin -i "$1" -map a:0 -f md5 -
}

# edits FILE: the edits of each track by its ID, as DURATION@MEDIATIME, in movie and media units, and the rate if it is
# not 1.
edits() {
  facts "$1" | awk '$2 == "elst" {
    printf "%s%s:", separator, $1; separator = "  "
    for (i = 3; i <= NF; ++i) if (split($i, field, "=") == 2) value[field[1]] = field[2]; else if ($i == "}")
      printf " %s@%s%s", value["duration"], value["mediaTime"], value["rate"] == 65536 ? "" : " x" value["rate"] / 65536
  } END { print "" }'
}
