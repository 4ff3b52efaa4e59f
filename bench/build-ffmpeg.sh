#!/usr/bin/env bash
# Builds the ffmpeg that the product is measured against, once, into build/bench/ffmpeg: Debian's source with its
# openh264 and x264 libraries (Debian's own binary has no openh264), and of ffmpeg only what reads raw pictures and
# writes H.264 files. Twice: as it is, and as ffmpeg-same with the product's settings where ffmpeg's adapter of openh264
# offers no option.
set -euo pipefail

case "${1:-}" in
  '') ;;
  -h | --help) echo "usage: bench/build-ffmpeg.sh"; exit 0 ;;
  *) echo "usage: bench/build-ffmpeg.sh" >&2; exit 2 ;;
esac

top=$(cd "$(dirname "$0")/.." && pwd)
folder=$top/build/bench
prefix=$folder/ffmpeg
# Raise it when the configuration below changes.
recipe=2
stamp=$prefix/.recipe-$recipe
[ ! -e "$stamp" ] || exit 0

sources=$folder/sources
log=$folder/ffmpeg.log
apt_folder=$folder/apt
topic=bench
. "$top/scripts/apt-source.sh"
rm -rf "$prefix"
mkdir -p "$prefix" "$sources"
: >"$log"
complain() {
  [ "$1" -eq 0 ] || { echo "bench: failed; the end of build/bench/ffmpeg.log:" >&2; tail -n 25 "$log" >&2; }
}
trap 'complain $?' EXIT

fetch_sources ffmpeg
adapter=$sources/ffmpeg/libavcodec/libopenh264enc.c
# What a run that was stopped in the middle has left: both would have the product's settings.
[ ! -e "$adapter.debian" ] || mv "$adapter.debian" "$adapter"
echo "bench: building ffmpeg"
build=$folder/build-ffmpeg
rm -rf "$build"
mkdir "$build"
cd "$build"
compiler=cc
! command -v ccache >/dev/null || compiler="ccache cc"
"$sources/ffmpeg/configure" --cc="$compiler" --prefix="$prefix" --disable-everything --disable-autodetect --disable-doc \
  --disable-network --disable-debug --disable-ffplay --disable-ffprobe --enable-gpl --enable-libopenh264 --enable-libx264 \
  --enable-encoder=libopenh264,libx264 --enable-demuxer=rawvideo --enable-decoder=rawvideo --enable-muxer=h264,null \
  --enable-encoder=rawvideo,wrapped_avframe --enable-protocol=file,pipe \
  --enable-filter=scale,format,null --extra-version=bench >>"$log" 2>&1
make -j"$(nproc)" ffmpeg >>"$log" 2>&1
cp ffmpeg "$prefix"

echo "bench: building ffmpeg-same"
cp "$adapter" "$adapter.debian"
# As encoder/EncoderSettings.cpp has them.
sed -E -e 's/(param\.bEnableBackgroundDetection +=) 1;/\1 0; param.bEnableSceneChangeDetect = 0; param.bFixRCOverShoot = 1;/' \
  -e 's/(param\.bEnableAdaptiveQuant +=) 1;/\1 0; param.iComplexityMode = LOW_COMPLEXITY; param.bUseLoadBalancing = 0;/' \
  -e 's/(param\.iMaxBitrate +=) .*;/\1 UNSPECIFIED_BIT_RATE;/' "$adapter.debian" >"$adapter"
[ "$(diff "$adapter.debian" "$adapter" | grep -c '^>')" -eq 3 ] ||
  { echo "bench: ffmpeg's adapter of openh264 is not the one that this script knows" >&2; exit 1; }
make -j"$(nproc)" ffmpeg >>"$log" 2>&1
cp ffmpeg "$prefix/ffmpeg-same"
mv "$adapter.debian" "$adapter"
cd "$top"
rm -rf "$build"
touch "$stamp"
echo "bench: build/bench/ffmpeg is ready"
