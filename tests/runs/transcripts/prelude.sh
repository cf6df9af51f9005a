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

# tracks FILE: the kind of each track, whether it is enabled, and its length.
tracks() {
  paste -d ' ' <(ffprobe -v error -show_entries stream=codec_type:stream_disposition=default -of csv=p=0 "$1" |
    sed 's/,1/ on/; s/,0/ off/') <(exiftool -a -s3 -TrackDuration "$1") | paste -sd , | sed 's/,/, /g'
}
