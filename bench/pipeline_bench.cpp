// Latency and throughput of the library from BufferCB to the host's data callback, with the real encoder, and
// the share of each stage.
//
//   build/native/bin/pipeline_bench --benchmark_counters_tabular=true
//   build/native/bin/pipeline_bench --benchmark_filter=Paced/1280x720
//   build/native/bin/pipeline_bench --help
//
// On a busy machine, the p99 values include time slices of other programs. With sufficient rights, run the
// benchmark at real-time priority:
//
//   chrt --fifo 10 build/native/bin/pipeline_bench --benchmark_filter=Paced
//
//   Paced       a camera at its frame rate; the reported time is the mean latency of a frame
//   Unpaced     a camera that always has a frame ready; the reported time is that of a frame at full
//   throughput Open        the reported time is from the open request to the first packet, with a camera
//   without delay HandOver    FrameBufQueue: passing a frame from one thread to another PoolCopy    the copy
//   into the frame pool, and memcpy of the same bytes
//
// Counters of sessions. Names end in their units: ms, us (microseconds), pct (percent).
//
//   latency_*   from entering BufferCB to entering the data callback
//   encode_*    time in the encoder library
//   convert_*   part of encode_*: conversion to I420
//   buffercb_*  time that BufferCB blocks the streaming thread
//   copy_*      memcpy of a frame on the streaming thread, measured between the frames of the session
//   added_*     latency minus encode and one copy: overhead of the library
//   added_*_pct_of_30fps   the same relative to 33.3 ms, the frame interval at 30 frames per second
//   other_*_pct            share of the latency outside the actual encoding: includes conversion and copy
//   timer_late_*           delay of this machine's timers; part of every p99
//   encoder_idle_pct       share of time outside the encoder library
//   product_slice_threads  number of slice threads that the product chooses for this size on this machine
//
// The benchmark acts as the camera on the tests' scripted platform and calls BufferCB directly: no device and
// no platform thread influences the results, and only the library and the encoder start threads. The encoder
// library is instrumented (TimedEncoder.h) and uses the given number of slice threads; the product chooses
// that number itself. The first frames of a session are excluded: they include a key frame and page faults.
//
// The p99 at 30 frames per second is that of 300 frames. At 10 frames per second it is the maximum of 40
// frames.
//
// The warning that the library was built as DEBUG refers to Debian's benchmark library, which does not time
// sessions.
//
// Absolute times depend on the machine and its load; compare results of the same run only. The exit status is
// 1 if a benchmark failed.
#include "Failures.h"
#include "PipelineBenchmarks.h"

int main(int argc, char** argv) {
  bench::RegisterSessionBenchmarks();
  bench::RegisterPartBenchmarks();
  return bench::RunBenchmarks(argc, argv);
}
