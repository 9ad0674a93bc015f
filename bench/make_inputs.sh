#!/usr/bin/env bash
# Makes the benchmark inputs with ffmpeg, for each container given (default:
# flv avi mov asf), into DIR (default: bench/inputs, which git ignores):
#   large_<c>.<ext>  ~1 GB of large samples: 1280x720 H.264 at 10 Mb/s + AAC (FLV,
#                    MOV), MPEG-4 Part 2 + MP3 (AVI) or MS-MPEG4v3 + WMA 2 (ASF), a 60 s clip
#                    looped with -c copy
#   small_<c>.<ext>  ~2 hours of small samples: 160x120 at 100 kb/s + 32 kb/s audio
# Usage: bench/make_inputs.sh [DIR] [CONTAINER...]
set -euo pipefail
dir=${1:-$(dirname "$0")/inputs}
shift || true
containers=("$@")
((${#containers[@]})) || containers=(flv avi mov asf)
mkdir -p "$dir"
ff=(ffmpeg -hide_banner -v error -y)

clip() {  # clip OUT SIZE VBITRATE ABITRATE SECONDS VCODEC ACODEC
  local out=$1 size=$2 vb=$3 ab=$4 secs=$5 vc=$6 ac=$7
  "${ff[@]}" -f lavfi -i "testsrc2=size=${size}:rate=25" -f lavfi -i "sine=frequency=440:sample_rate=44100" \
    -t "$secs" -c:v "$vc" -b:v "$vb" -maxrate "$vb" -bufsize "$vb" -g 50 -pix_fmt yuv420p \
    -c:a "$ac" -b:a "$ab" -ac 2 -ar 44100 "$out"
}

loop() {  # loop IN OUT TIMES
  "${ff[@]}" -stream_loop "$3" -i "$1" -map 0 -c copy "$2"
}

for c in "${containers[@]}"; do
  case $c in
    flv) vc=libx264 ac=aac loops=12 ;;
    # AVI past 1 GiB, so that the file carries OpenDML indexes (AVIX parts).
    avi) vc=mpeg4 ac=libmp3lame loops=14 ;;
    # QuickTime brand (-f mov from the name), so that the sniffer claims it.
    mov) vc=libx264 ac=aac loops=12 ;;
    # The muxer's default pair; the audio is a Windows Media stream, read with
    # the property set.
    asf) vc=msmpeg4 ac=wmav2 loops=12 ;;
    *) echo "no benchmark inputs for container '$c' yet" >&2; continue ;;
  esac
  ext=$c
  if [[ ! -s $dir/large_$c.$ext ]]; then
    clip "$dir/clip_large_$c.$ext" 1280x720 10M 128k 60 $vc $ac
    # 60 s at ~10.1 Mb/s is ~76 MB; 13 copies make ~1 GB, 15 ~1.15 GB.
    loop "$dir/clip_large_$c.$ext" "$dir/large_$c.$ext" "$loops"
    rm -f "$dir/clip_large_$c.$ext"
  fi
  if [[ ! -s $dir/small_$c.$ext ]]; then
    clip "$dir/clip_small_$c.$ext" 160x120 100k 32k 600 $vc $ac
    # 10 minutes, 12 copies: 2 hours.
    loop "$dir/clip_small_$c.$ext" "$dir/small_$c.$ext" 11
    rm -f "$dir/clip_small_$c.$ext"
  fi
  ls -l "$dir"/*_"$c"."$ext"
done
