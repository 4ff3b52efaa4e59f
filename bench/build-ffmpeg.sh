#!/usr/bin/env bash
# Builds ffmpeg for comparison with the product, once, into build/bench/ffmpeg: Debian's source with the openh264 and x264
# libraries (Debian's binary lacks openh264), restricted to reading raw video and MJPEG and writing H.264. There are two
# builds: ffmpeg is unmodified, ffmpeg-same has the product's settings where ffmpeg's openh264 wrapper has no option.
set -euo pipefail

case "${1:-}" in
  '') ;;
  -h | --help) echo "usage: bench/build-ffmpeg.sh"; exit 0 ;;
  *) echo "usage: bench/build-ffmpeg.sh" >&2; exit 2 ;;
esac

top=$(cd "$(dirname "$0")/.." && pwd)
folder=$top/build/bench
prefix=$folder/ffmpeg
# Increment when the configuration below changes.
recipe=3
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
report_failure() {
  [ "$1" -eq 0 ] || { echo "bench: failed; last lines of build/bench/ffmpeg.log:" >&2; tail -n 25 "$log" >&2; }
}
trap 'report_failure $?' EXIT

fetch_sources ffmpeg
adapter=$sources/ffmpeg/libavcodec/libopenh264enc.c
# Restores the source if an earlier run was interrupted after modifying it.
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
  --enable-encoder=libopenh264,libx264 --enable-demuxer=rawvideo,mpjpeg --enable-decoder=rawvideo,mjpeg --enable-muxer=h264,null \
  --enable-encoder=rawvideo,wrapped_avframe --enable-protocol=file,pipe \
  --enable-parser=mjpeg --enable-filter=scale,format,null --extra-version=bench >>"$log" 2>&1
make -j"$(nproc)" ffmpeg >>"$log" 2>&1
cp ffmpeg "$prefix"

echo "bench: building ffmpeg-same"
cp "$adapter" "$adapter.debian"
# The settings of encoder/EncoderSettings.cpp.
sed -E -e 's/(param\.bEnableBackgroundDetection +=) 1;/\1 0; param.bEnableSceneChangeDetect = 0; param.bFixRCOverShoot = 1;/' \
  -e 's/(param\.bEnableAdaptiveQuant +=) 1;/\1 0; param.iComplexityMode = LOW_COMPLEXITY; param.bUseLoadBalancing = 0;/' \
  -e 's/(param\.iMaxBitrate +=) .*;/\1 UNSPECIFIED_BIT_RATE;/' "$adapter.debian" >"$adapter"
[ "$(diff "$adapter.debian" "$adapter" | grep -c '^>')" -eq 3 ] ||
  { echo "bench: the openh264 wrapper of this ffmpeg version does not match the modifications in this script" >&2; exit 1; }
make -j"$(nproc)" ffmpeg >>"$log" 2>&1
cp ffmpeg "$prefix/ffmpeg-same"
mv "$adapter.debian" "$adapter"
cd "$top"
rm -rf "$build"
touch "$stamp"
echo "bench: build/bench/ffmpeg is ready"
