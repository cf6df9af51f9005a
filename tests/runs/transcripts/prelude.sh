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

# without_folder: a filter that removes the path of the folder from names.
without_folder() { sed "s|$(pwd -P)/||g"; }

# changed FILE TYPE NUMBER AT HEX: prints FILE with these bytes at AT in the content of the atom of that
# type; NUMBER counts such atoms from 0. A negative AT counts from the end of the atom. Without a type,
# AT is a place in the file.
changed() {
  python3 - "$@" <<'END'
import sys
name, kind, number, at, new = sys.argv[1:]
data, new, start, at = bytearray(open(name, "rb").read()), bytes.fromhex(new), 0, int(at)
for _ in range(int(number) + 1 if kind else 0):
    start = data.index(kind.encode().decode("unicode_escape").encode("latin-1"), start) + 4
at += start if at >= 0 else start - 8 + int.from_bytes(data[start - 8 : start - 4], "big")
data[at : at + len(new)] = new
sys.stdout.buffer.write(data)
END
}

# valid SCHEMA: says whether the JSON on its standard input agrees with that schema of clipinfo.
valid() {
  python3 -c '
import json, sys, jsonschema
schema = json.load(open(sys.argv[1]))
jsonschema.Draft202012Validator.check_schema(schema)
jsonschema.Draft202012Validator(schema).validate(json.load(sys.stdin))
print("valid")' "$(dirname "$BASH_ENV")/../../../clipinfo/$1"
}

# same OUTPUT INPUT...: compares them with clipinfo -same. Leaves out sizes and hashes, which depend on
# the encoders.
same() {
  local text status
  text=$(clipinfo -same "$1" -from "${@:2}" 2>&1)
  status=$?
  sed -E 's/, [0-9]+ bytes, hash [0-9a-f]{32}$//' <<<"$text" | without_folder
  return $status
}

# The folder of the scripts that join many recordings, and: open: what has no movie in "joined", and what
# is half done.
batch=$(dirname "$BASH_ENV")/../../../examples/batch
open() {
  list-jobs recordings joined | tr '\0\n' '\n_'
  ls -A joined/unproved
}

# chapters FILE: the start in milliseconds and the title of each chapter, which two readers find.
chapters() {
  ffprobe -v error -show_chapters -of json "$1" | jq -r '[.chapters[] | "\((.start_time | tonumber * 1000 | round)) \(.tags.title)"] | join(", ")'
}

# frames FILE: the hashes of all decoded pictures.
frames() { ffmpeg -v error -nostdin -i "$1" -map 0:v -fps_mode passthrough -f framemd5 - | sed '/^#/d; s/.*, *//'; }

# shows FILE: the time in milliseconds and the hash of each picture that a player shows.
shows() {
  ffmpeg -v error -nostdin -i "$1" -map 0:v -fps_mode passthrough -enc_time_base 1/1000 -f framemd5 - |
    awk -F', *' '!/^#/ {print $3, $6}'
}

# what FILE...: duration and kinds of streams of each file, and what ffmpeg complains of.
what() {
  for file; do
    ffprobe -v error -show_entries format=duration:stream=codec_type -of csv=p=0 "$file" | sort | tr '\n' ' '
    echo "$file"
    ffmpeg -v error -nostdin -i "$file" -fps_mode passthrough -f null -
  done
}

# recipe TITLE: the commands of a recipe in the manual.
recipe() {
  sed -n "/^\.Ss $1\$/,/^\.S[sh] /p" "$(dirname "$BASH_ENV")/../../../man/Reelwork.7" |
    sed -n '/^\.Bd/,/^\.Ed/{/^\.[BE]d/d; s/^\$ //; s/\\e/\\/g; s/\\-/-/g; s/\\(aq/'\''/g; p}'
}
