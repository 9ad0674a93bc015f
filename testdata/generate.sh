#!/usr/bin/env bash
# Regenerates every media file in testdata/ plus its ffprobe-derived
# <name>.packets.csv and <name>.streams.txt.  Deterministic: fixed lavfi
# sources, bitexact muxing/encoding, single-threaded encoders.
# Usage: testdata/generate.sh [SECTION...]   (from anywhere; writes next to
# this script). Sections: flv avi raw mov asf; none given makes all of them.
set -euo pipefail
SECTIONS=" ${*:-flv avi raw mov asf} "
want() { [[ $SECTIONS == *" $1 "* ]]; }

cd "$(dirname "$0")"
OUT=$PWD
TMP=$(mktemp -d)
trap 'rm -rf "$TMP"' EXIT

FF=(ffmpeg -nostdin -hide_banner -loglevel error -y)
# Output options shared by every encode.
BX=(-map_metadata -1 -fflags +bitexact -flags +bitexact -threads 1)

# Fixed synthetic sources (2 s).
vsrc() { # vsrc WxH FPS [DURATION]
    echo "testsrc2=size=$1:rate=$2:duration=${3:-2}"
}
stereo() { # stereo RATE [DURATION]  -> 440 Hz left, 660 Hz right
    echo "aevalsrc=0.5*sin(440*2*PI*t)|0.5*sin(660*2*PI*t):s=$1:d=${2:-2}"
}
mono() { # mono RATE [DURATION]
    echo "sine=frequency=440:sample_rate=$1:duration=${2:-2}"
}

PKT_ENTRIES="packet=stream_index,codec_type,pts_time,dts_time,dts,pts,size,flags,duration_time"
# MOV/MP4 lists also carry each packet's file offset: the sample table's
# offsets are checked against them.
MOV_PKT_ENTRIES="packet=stream_index,codec_type,pts_time,dts_time,dts,pts,size,pos,flags,duration_time"
STREAM_KEYS='index|codec_name|codec_type|profile|codec_tag_string|codec_tag|width|height|pix_fmt|sample_fmt|sample_rate|channels|bits_per_sample|bits_per_raw_sample|block_align|time_base|extradata_size'

# probe NAME: writes NAME.packets.csv and NAME.streams.txt
probe() {
    local f=$1 entries=$PKT_ENTRIES
    case $f in *.mov|*.mp4|*.m4a|*.3gp) entries=$MOV_PKT_ENTRIES ;; esac
    # ffprobe prints the fields in its own fixed order (not the order asked
    # for), so derive the header from the key names of the first packet.
    local hdr
    hdr=$(ffprobe -v error -show_packets -read_intervals '%+#1' -of compact=p=0 \
            -show_entries "$entries" "$f" | head -1 |
          tr '|' '\n' | cut -d= -f1 | paste -sd, -)
    {
        echo "#$hdr"
        ffprobe -v error -show_packets -of csv=p=0 -show_entries "$entries" "$f"
    } > "$f.packets.csv"
    ffprobe -v error -show_streams -of flat "$f" |
        grep -E "^streams\.stream\.[0-9]+\.($STREAM_KEYS)=" > "$f.streams.txt" || true
    # ffprobe-independent container-level dumps
    case $f in
        *.avi) python3 avi_idx1_dump.py "$f" > "$f.idx1.csv" ;;
        *.flv) python3 flv_tags_dump.py "$f" > "$f.tags.csv" ;;
        # ASF file metadata (title, author as "artist", album) as ffprobe reads it
        *.asf|*.wma) ffprobe -v error -show_format -of flat "$f" | grep '^format\.tags\.' > "$f.format.txt" || true ;;
    esac
}

enc() { # enc OUTFILE ffmpeg-args...   (output file appended last)
    local o=$1; shift
    "${FF[@]}" "$@" "${BX[@]}" "$o"
    probe "$o"
}

X264_SMALL=(-c:v libx264 -preset medium -pix_fmt yuv420p -b:v 120k -x264-params "bframes=2:keyint=25:min-keyint=25:scenecut=0")

############################################################ FLV
if want flv; then
# H.264 (main profile, 2 B-frames, key frame every 25) + AAC 44.1k stereo
enc flv_h264_aac.flv \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(stereo 44100)" \
    "${X264_SMALL[@]}" -profile:v main -bf 2 -g 25 \
    -c:a aac -ar 44100 -ac 2 -b:a 64k -f flv

# Sorenson H.263 + MP3 44.1k stereo
enc flv_h263_mp3.flv \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(stereo 44100)" \
    -c:v flv1 -g 25 -b:v 150k \
    -c:a libmp3lame -ar 44100 -ac 2 -b:a 64k -f flv

# AAC only
enc flv_aac_only.flv \
    -f lavfi -i "$(stereo 44100)" \
    -c:a aac -ar 44100 -ac 2 -b:a 64k -f flv

# H.264 + AAC without any script-data (onMetaData) tag
"${FF[@]}" -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(stereo 44100)" \
    "${X264_SMALL[@]}" -profile:v main -bf 2 -g 25 \
    -c:a aac -ar 44100 -ac 2 -b:a 64k -f flv "${BX[@]}" "$TMP/with_meta.flv"
python3 strip_flv_script.py "$TMP/with_meta.flv" flv_h264_nometa.flv
probe flv_h264_nometa.flv

fi
############################################################ AVI
if want avi; then
# MPEG-4 ASP tagged XVID + MP3
enc avi_xvid_mp3.avi \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(stereo 44100)" \
    -c:v mpeg4 -vtag XVID -g 12 -bf 0 -b:v 150k \
    -c:a libmp3lame -ar 44100 -ac 2 -b:a 64k -f avi

# MS MPEG-4 v3 (DIV3) + 16-bit PCM
enc avi_msmpeg4v3_pcm.avi \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(mono 22050)" \
    -c:v msmpeg4v3 -vtag DIV3 -g 12 -b:v 150k \
    -c:a pcm_s16le -ar 22050 -ac 1 -f avi

# Motion JPEG + 8-bit unsigned PCM
enc avi_mjpeg_pcm8.avi \
    -f lavfi -i "$(vsrc 160x120 10)" -f lavfi -i "$(mono 11025)" \
    -c:v mjpeg -pix_fmt yuvj420p -q:v 20 \
    -c:a pcm_u8 -ar 11025 -ac 1 -f avi

# H.264 (no B-frames) + AC-3
enc avi_h264_ac3.avi \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(stereo 48000)" \
    -c:v libx264 -preset medium -pix_fmt yuv420p -b:v 120k -profile:v baseline \
    -x264-params "bframes=0:keyint=12:min-keyint=12:scenecut=0" \
    -c:a ac3 -ar 48000 -ac 2 -b:a 96k -f avi

# MPEG-4 ASP (default FMP4 tag) + IMA ADPCM
enc avi_mpeg4_ima.avi \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(mono 22050)" \
    -c:v mpeg4 -g 12 -bf 0 -b:v 150k \
    -c:a adpcm_ima_wav -ar 22050 -ac 1 -f avi

# MPEG-4 ASP tagged DX50 + MS ADPCM
enc avi_dx50_msadpcm.avi \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(stereo 22050)" \
    -c:v mpeg4 -vtag DX50 -g 12 -bf 0 -b:v 150k \
    -c:a adpcm_ms -ar 22050 -ac 2 -f avi

# H.263 (QCIF) + A-law 8 kHz mono
enc avi_h263_alaw.avi \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(mono 8000)" \
    -c:v h263 -g 12 -b:v 150k \
    -c:a pcm_alaw -ar 8000 -ac 1 -f avi

# MPEG-4 ASP tagged XVID + MP2
enc avi_xvid_mp2.avi \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(stereo 44100)" \
    -c:v mpeg4 -vtag XVID -g 12 -bf 0 -b:v 150k \
    -c:a mp2 -ar 44100 -ac 2 -b:a 128k -f avi

# MPEG-4 ASP + AAC
enc avi_mpeg4_aac.avi \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(stereo 44100)" \
    -c:v mpeg4 -g 12 -bf 0 -b:v 150k \
    -c:a aac -ar 44100 -ac 2 -b:a 64k -f avi

fi
############################################################ raw H.264
if want raw; then
# Two frames each, Annex-B.  1920x1080 is coded as 1920x1088 + cropping.
h264_raw() { # h264_raw WxH
    local n=h264_$1
    enc "$n.h264" -f lavfi -i "$(vsrc "$1" 25 1)" -frames:v 2 \
        -c:v libx264 -preset medium -pix_fmt yuv420p -crf 51 -f h264
    python3 extract_h264_params.py "$n.h264" "$n"
}
h264_raw 176x144
h264_raw 1920x1080
{
    echo "# file width height (display size after cropping; from the SPS)"
    for n in h264_176x144 h264_1920x1080; do
        w=$(ffprobe -v error -select_streams v:0 -show_entries stream=width  -of csv=p=0 "$n.h264")
        h=$(ffprobe -v error -select_streams v:0 -show_entries stream=height -of csv=p=0 "$n.h264")
        for f in "$n.h264" "$n.sps.bin"; do echo "$f $w $h"; done
    done
} > h264.expected.txt

############################################################ raw H.263+
# One intra picture with an extended (PLUSPTYPE) header whose OPPTYPE turns
# on UMV, advanced prediction, AIC, deblocking, slices, AIV and modified
# quantisation (ffmpeg -debug pict reports "AP UMV + AIC AIV MQ LOOP SS").
"${FF[@]}" -f lavfi -i "$(vsrc 176x144 25 0.04)" -frames:v 1 \
    -c:v h263p -umv 1 -aiv 1 -obmc 1 -structured_slices 1 -flags +aic+loop \
    "${BX[@]}" -f h263 h263p_qcif_annexes.h263

############################################################ MP4 esds
# 0.1 s of AAC LC mono in MP4: its esds box uses 4-byte descriptor lengths
# (80 80 80 nn) and carries a 5-byte AudioSpecificConfig.
"${FF[@]}" -f lavfi -i "$(mono 44100 0.1)" -c:a aac -ac 1 -b:a 32k \
    "${BX[@]}" -f mp4 aac_mono_44100.m4a

############################################################ raw MPEG audio
# 0.5 s each; no ID3v2 tag and no Xing/Info frame, so byte 0 is a frame header.
MP3_OPTS=(-c:a libmp3lame -write_xing 0 -id3v2_version 0 -write_id3v1 0 -f mp3)
enc mp3_44100_stereo.mp3 -f lavfi -i "$(stereo 44100 0.5)" \
    -ar 44100 -ac 2 -b:a 128k "${MP3_OPTS[@]}"            # MPEG-1 Layer III
enc mp3_22050_mono.mp3 -f lavfi -i "$(mono 22050 0.5)" \
    -ar 22050 -ac 1 -b:a 32k "${MP3_OPTS[@]}"             # MPEG-2 Layer III
enc mp3_8000_mono.mp3 -f lavfi -i "$(mono 8000 0.5)" \
    -ar 8000 -ac 1 -b:a 16k "${MP3_OPTS[@]}"              # MPEG-2.5 Layer III
enc mp2_48000.mp2 -f lavfi -i "$(stereo 48000 0.5)" \
    -c:a mp2 -ar 48000 -ac 2 -b:a 192k -f mp2             # MPEG-1 Layer II
enc mp2_24000.mp2 -f lavfi -i "$(mono 24000 0.5)" \
    -c:a mp2 -ar 24000 -ac 1 -b:a 64k -f mp2              # MPEG-2 Layer II

fi
############################################################ MOV / MP4
# QuickTime brand (-f mov) and ISO brands (mp4, m4a, 3gp).
if want mov; then
# H.264 with 2 B-frames (composition offsets) + AAC, QuickTime brand
enc mov_h264_aac.mov \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(stereo 44100)" \
    "${X264_SMALL[@]}" -profile:v main -bf 2 -g 25 \
    -c:a aac -ar 44100 -ac 2 -b:a 64k -f mov
# MPEG-4 Part 2 + big-endian 16-bit PCM ('twos')
enc mov_mpeg4_twos.mov \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(mono 22050)" \
    -c:v mpeg4 -g 12 -bf 0 -b:v 150k \
    -c:a pcm_s16be -ar 22050 -ac 1 -f mov
# Motion JPEG + little-endian 16-bit PCM ('sowt')
enc mov_mjpeg_sowt.mov \
    -f lavfi -i "$(vsrc 160x120 10)" -f lavfi -i "$(mono 11025)" \
    -c:v mjpeg -pix_fmt yuvj420p -q:v 20 \
    -c:a pcm_s16le -ar 11025 -ac 1 -f mov
# H.263 (QCIF) + AAC in 3GP, with 3GPP user-data strings (moov/udta titl,
# perf, auth, albm, yrrc, gnre, dscp, cprt). enc puts BX (-map_metadata -1)
# before the output name, so these -metadata options still take effect.
enc 3gp_h263_aac.3gp \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(mono 8000)" \
    -c:v h263 -g 12 -b:v 100k \
    -c:a aac -ar 8000 -ac 1 -b:a 16k -f 3gp \
    -metadata title="Test Title" -metadata artist="Test Artist" -metadata author="Test Author" \
    -metadata album="Test Album" -metadata date=2013 -metadata genre=Rock \
    -metadata comment="Test Comment" -metadata copyright="Test Copyright"
# H.263 + AMR-NB in 3GP. This ffmpeg has no AMR-NB encoder, so the speech is
# written by hand as a raw AMR file ("#!AMR\n", then 100 frames of 12.2 kb/s:
# the frame header 0x3C and 31 bytes of seeded noise a decoder reads as
# speech bits) and muxed by ffmpeg unchanged (-c:a copy, sample entry 'samr').
python3 -c '
import random, sys
r = random.Random(12345)
out = bytearray(b"#!AMR\n")
for _ in range(100):
    out += bytes([0x3C]) + bytes(r.getrandbits(8) for _ in range(31))
sys.stdout.buffer.write(out)' > "$TMP/speech.amr"
enc 3gp_h263_amrnb.3gp \
    -f lavfi -i "$(vsrc 176x144 25)" -i "$TMP/speech.amr" \
    -c:v h263 -g 25 -b:v 150k -c:a copy -f 3gp
# AAC only with iTunes tags, cover art and a free-form iTunSMPB item (m4a)
"${FF[@]}" -f lavfi -i "$(stereo 44100)" -f lavfi -i "color=c=red:size=32x32:duration=0.04" \
    -map 0:a -map 1:v -c:a aac -ar 44100 -ac 2 -b:a 64k -c:v png -frames:v 1 -disposition:v attached_pic \
    "${BX[@]}" -metadata title="Test Title" -metadata artist="Test Artist" -metadata album="Test Album" \
    -metadata date=2014 -metadata track=3/12 -metadata genre=Jazz -f ipod "$TMP/tags.m4a"
# ffmpeg cannot write iTunes free-form ('----') items; append one to ilst.
python3 mov_add_freeform.py "$TMP/tags.m4a" m4a_aac_tags.m4a com.apple.iTunes iTunSMPB \
    " 00000000 00000840 000001CA 0000000000046E00 00000000 00000000 00000000 00000000 00000000 00000000 00000000 00000000"
probe m4a_aac_tags.m4a
# ISO brand with the movie header first (+faststart)
enc mp4_h264_faststart.mp4 \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(stereo 44100)" \
    "${X264_SMALL[@]}" -profile:v main -bf 2 -g 25 \
    -c:a aac -ar 44100 -ac 2 -b:a 64k -movflags +faststart -f mp4
# Fragmented at every key frame: only what moov indexes is played
enc mp4_h264_fragmented.mp4 \
    -f lavfi -i "$(vsrc 176x144 25)" -f lavfi -i "$(stereo 44100)" \
    "${X264_SMALL[@]}" -profile:v main -bf 2 -g 25 \
    -c:a aac -ar 44100 -ac 2 -b:a 64k -movflags +frag_keyframe -f mp4
# Video only, MPEG-2 ('m2v1', no esds: the sequence header is in the first frame)
enc mov_mpeg2.mov \
    -f lavfi -i "$(vsrc 176x144 25 1)" \
    -c:v mpeg2video -g 12 -b:v 200k -f mov
# Audio only, IMA ADPCM ('ms\0\x11'), 1.5 s: sound description version 1
enc mov_ima_adpcm.mov \
    -f lavfi -i "$(stereo 22050 1.5)" \
    -c:a adpcm_ima_wav -ac 2 -ar 22050 -f mov
# Audio only, Microsoft ADPCM ('ms\0\x02'), 1.5 s
enc mov_ms_adpcm.mov \
    -f lavfi -i "$(mono 11025 1.5)" \
    -c:a adpcm_ms -ac 1 -ar 11025 -f mov
# MPEG-4 ASP 160x120 at 10 fps + MP3 ('.mp3') 22050 Hz mono
enc mov_mp3.mov \
    -f lavfi -i "$(vsrc 160x120 10)" -f lavfi -i "$(mono 22050)" \
    -c:v mpeg4 -g 12 -bf 0 -b:v 100k \
    -c:a libmp3lame -ar 22050 -ac 1 -b:a 32k -f mov
fi
############################################################ ASF
if want asf; then
# WMV2 + WMA2 with a title and an author, 1 s, small bit rates (about 40 KB)
enc asf_wmv2_wmav2.asf \
    -f lavfi -i "$(vsrc 160x120 10 1)" -f lavfi -i "$(mono 44100 1)" \
    -c:v wmv2 -b:v 32k -c:a wmav2 -b:a 32k -f asf \
    -metadata title=T -metadata author=A
# MS-MPEG4v3 + MP3 22050 Hz mono, 1 s
enc asf_msmpeg4v3_mp3.asf \
    -f lavfi -i "$(vsrc 160x120 10 1)" -f lavfi -i "$(mono 22050 1)" \
    -c:v msmpeg4 -b:v 64k -c:a libmp3lame -ar 22050 -ac 1 -b:a 32k -f asf
# H.264 baseline (no B-frames: ASF stores presentation times) + PCM 8 kHz mono, 1 s
enc asf_h264_pcm.asf \
    -f lavfi -i "$(vsrc 160x120 10 1)" -f lavfi -i "$(mono 8000 1)" \
    -c:v libx264 -preset medium -pix_fmt yuv420p -b:v 60k -profile:v baseline -g 5 \
    -c:a pcm_s16le -f asf
# WMA 1 only, with title, author and album (Extended Content Description), 2 s
enc asf_wmav1_tags.wma \
    -f lavfi -i "$(stereo 22050)" -c:a wmav1 -b:a 32k -f asf \
    -metadata title="Zirk Title" -metadata author="Zirk Author" -metadata album="Zirk Album"
# MP3 only, 44.1 kHz stereo, 2 s
enc asf_mp3_only.asf \
    -f lavfi -i "$(stereo 44100)" -c:a libmp3lame -b:a 64k -f asf
# Small packets (256 bytes): every video object is split over several packets
enc asf_small_packets.asf \
    -f lavfi -i "$(vsrc 160x120 10 1)" -f lavfi -i "$(mono 22050 1)" \
    -c:v wmv2 -b:v 48k -c:a wmav2 -ar 22050 -b:a 32k -packet_size 256 -f asf
fi

echo "done: $(du -sh "$OUT" | cut -f1) in $OUT"
