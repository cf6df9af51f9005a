# Shared by all transcripts: makes movies, and asks other programs about them.

# clip FILE [SECONDS [OPTION...]]: makes a movie with the given length (default 1) and ffmpeg's
# options. The same arguments always give the same bytes, so the folder $KEPT has them for the next
# time.
clip() {
  local file=$1 seconds=${2:-1} made new
  shift $(($# < 2 ? $# : 2))
  (($#)) || set -- -c:v mpeg4
  made=$KEPT/$({ stat -Lc %Y "$(type -P ffmpeg)"; declare -f clip; printf '%s\n' "$seconds" "$@"; } |
    sha256sum | cut -c-64).${file##*.}
  if [[ ! -e $made ]]; then
    new=${made%.*}-$BASHPID.${file##*.}
    ffmpeg -v error -nostdin -y -fflags +bitexact -f lavfi -i "testsrc=s=64x48:r=10:d=$seconds" \
      -f lavfi -i "sine=sample_rate=8000:d=$seconds" -c:a pcm_s16le -map 0 -map 1 "$@" \
      -flags:v +bitexact -flags:a +bitexact "$new" || return
    mv "$new" "$made"
  fi
  cp "$made" "$file"
}

# streams FILE: one line for each stream: its kind, codec, and number of packets.
streams() {
  ffprobe -v error -count_packets -show_entries stream=codec_type,codec_name,nb_read_packets \
    -of compact=p=0:nk=1 "$1"
}

# facts FILE: one line for each fact that the header of a movie states: track ID, atom, and a field
# or a table.
facts() {
  clipinfo -atoms "$1" | awk '
    { sub(/^ *(in cmov )?[0-9]+ /, ""); gsub(/\x27/, ""); sub(/ [0-9]+/, ""); sub(/ unknown$|entries=1 /, "") }
    $1 == "mvhd" || $1 == "udta" { track = "movie" }
    $1 == "tkhd" { track = $5; sub("id=", "", track); print track, "trak" }
    /^(elst|stts)/ || NF == 1 && !/^(trak|free|wide|mdat)/ { print track, $0 }
    !/^(ftyp|elst|st..)/ { for (i = 2; i <= NF; ++i) print track, $1, $i }'
}

# differences OLD NEW: what NEW states and OLD does not: tracks and atom, and the fields that
# differ. Tracks, edit lists and user data that NEW does not have follow "-".
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

# tune FILE OPTION...: makes out.mov from FILE, by reference, and prints what the options have
# changed.
tune() {
  cliptune -q "$1" -o same.mov
  cliptune -q "$@" -o out.mov
  differences same.mov out.mov
}

# after TYPE COUNT FILE: that many bytes after each TYPE in a file, in hex.
after() {
  perl -0777 -ne "while (/$1(.{$2})/gs) { print unpack('H*', \$1), \"\\n\" }" "$3"
}

# unprivileged COMMAND...: runs a command that may not ignore the rights of files, even if root runs
# the tests.
unprivileged() {
  if ((EUID)); then "$@"; else setpriv --bounding-set=-dac_override,-dac_read_search -- "$@"; fi
}

# sound FILE: the checksum of the sound that ffmpeg decodes.
sound() {
  ffmpeg -v error -nostdin -i "$1" -map a:0 -f md5 -
}

# edits FILE: the edits of each track by its ID, as DURATION@MEDIATIME, in movie and media units,
# and the rate if it is not 1.
edits() {
  facts "$1" | awk '$2 == "elst" {
    printf "%s%s:", separator, $1; separator = "  "
    for (i = 3; i <= NF; ++i) if (split($i, field, "=") == 2) value[field[1]] = field[2]; else if ($i == "}")
      printf " %s@%s%s", value["duration"], value["mediaTime"], value["rate"] == 65536 ? "" : " x" value["rate"] / 65536
  } END { print "" }'
}

# without_folder: a filter that removes the path of the folder from names.
without_folder() { sed "s|$(pwd -P)/||g"; }

# changed FILE TYPE NUMBER AT HEX: prints FILE with these bytes at AT in the content of the atom of
# that type; NUMBER counts such atoms from 0. A negative AT counts from the end of the atom. Without
# a type, AT is a place in the file.
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

# same OUTPUT INPUT...: compares them with clipinfo -same. Leaves out sizes and hashes, which depend
# on the encoders.
same() {
  local text status
  text=$(clipinfo -same "$1" -from "${@:2}" 2>&1)
  status=$?
  sed -E 's/, [0-9]+ bytes, hash [0-9a-f]{32}$//' <<<"$text" | without_folder
  return $status
}

# The folder of the scripts that join many recordings. They are found by their names, after the
# programs in the folder "bin" of a transcript. A script that starts with this file keeps the PATH
# that it is given.
batch=$(dirname "$BASH_ENV")/../../../examples/batch
[[ $PATH == *"$batch"* ]] || PATH=$PWD/bin:$batch:$PATH

# open: what has no movie in "joined", and what is half done.
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

# tracks FILE: the kind of each track, whether it is enabled, and its length.
tracks() {
  paste -d ' ' <(ffprobe -v error -show_entries stream=codec_type:stream_disposition=default -of csv=p=0 "$1" |
    sed 's/,1/ on/; s/,0/ off/') <(exiftool -a -s3 -TrackDuration "$1") | paste -sd , | sed 's/,/, /g'
}

# wait_until COMMAND...: waits until it succeeds, for up to a minute.
wait_until() {
  local end=$((SECONDS + 60))
  until "$@"; do
    ((SECONDS < end)) || { echo "still failed after a minute: $*"; return 1; }
    sleep 0.1
  done
}

# start_slurm: starts Slurm until the case ends, in the folder "slurm". This machine is the
# controller and the only node.
start_slurm() {
  local home=$PWD/slurm host=$(hostname -s) user=$(id -un) program
  chmod 755 . .. # munged requires these permissions
  mkdir -m 755 slurm && head -c 64 /dev/urandom >slurm/munge.key && chmod 400 slurm/munge.key
  export SLURM_CONF=$home/slurm.conf
  cat >"$SLURM_CONF" <<END
ClusterName=test
SlurmctldHost=$host(127.0.0.1)
SlurmctldPort=$((20000 + $$ % 10000))
SlurmdPort=$((30000 + $$ % 10000))
SlurmUser=$user
SlurmdUser=$user
AuthInfo=socket=$home/munge.socket
StateSaveLocation=$home/state
SlurmdSpoolDir=$home/spool
SlurmctldPidFile=$home/slurmctld.pid
SlurmdPidFile=$home/slurmd.pid
SlurmctldLogFile=$home/slurmctld.log
SlurmdLogFile=$home/slurmd.log
ProctrackType=proctrack/linuxproc
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SchedulerParameters=batch_sched_delay=0,sched_interval=1
MpiDefault=none
NodeName=$host NodeAddr=127.0.0.1 CPUs=$(nproc)
PartitionName=test Nodes=ALL Default=YES
END
  trap 'kill $(cat slurm/*.pid); wait_until is_printed "" find slurm -name "*.pid"' EXIT
  munged --num-threads=1 --key-file="$home/munge.key" --socket="$home/munge.socket" \
    --pid-file="$home/munged.pid" --log-file="$home/munged.log" --seed-file="$home/munged.seed" ||
    return
  for program in slurmctld slurmd; do "$program" >/dev/null 2>&1; done
  wait_until is_printed idle sinfo -h -o %T
}

# is_printed TEXT COMMAND...: whether the command prints that.
is_printed() { [[ $("${@:2}") == "$1" ]]; }

# mount_recordings OPTION...: mounts bucket/recordings at "recordings" until the case ends.
mount_recordings() {
  export RCLONE_CONFIG=/dev/null RCLONE_CACHE_DIR=$PWD/cache
  export RCLONE_CONFIG_REMOTE_TYPE=alias RCLONE_CONFIG_REMOTE_REMOTE=$PWD/bucket
  rclone mount --daemon "$@" remote:recordings recordings >mount.log 2>&1 || cat mount.log
  trap unmount_recordings EXIT
}

# unmount_recordings: unmounts as soon as its files are closed.
unmount_recordings() { wait_until fusermount3 -u recordings; trap - EXIT; }
