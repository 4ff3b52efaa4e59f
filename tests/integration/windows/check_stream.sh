#!/bin/sh
# Records a stream in one format under Wine, then decodes it and checks every picture on the build machine.
# usage: check_stream.sh WINE TEST_PROGRAM LAYOUT WIDTH HEIGHT PICTURE_READER FFMPEG
set -e
wine=$1 program=$2 layout=$3 width=$4 height=$5 reader=$6 ffmpeg=$7
name=${layout}_${width}x${height}
rm -f "streams/$name.h264" "streams/$name.count" "streams/$name.yuv"
"$wine" "$program" "--gtest_filter=All/EveryFormat.Streams/$name"
# Any warning of the decoder is a failure.
messages=$("$ffmpeg" -nostdin -v warning -fflags +genpts -f h264 -i "streams/$name.h264" -fps_mode passthrough \
  -pix_fmt yuv420p -f rawvideo "streams/$name.yuv" 2>&1)
if [ -n "$messages" ]; then
  echo "ffmpeg reported: $messages"
  exit 1
fi
"$reader" "streams/$name.yuv" "$width" "$height" "$(cat "streams/$name.count")"
rm "streams/$name.yuv"
